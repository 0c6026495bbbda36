#include <cstdio>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    // Unbuffered, so that what a test printed survives a time-out under Wine.
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
