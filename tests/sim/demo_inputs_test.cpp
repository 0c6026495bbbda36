// kestrel-cli demo with its input registers and discrete input seeded: every live value of the
// demo device moves, the FC04 values among them.
#include <gtest/gtest.h>

#if !defined(_WIN32)
#include <chrono>
#include <thread>

#include "sim/sim_test_support.h"

using namespace simtest;

namespace {

std::vector<std::string> ValuesOf(const std::string& out, const std::string& name) {
    std::vector<std::string> values;
    for (const std::string& line : Lines(out)) {
        if (line.rfind(name + ": ", 0) == 0) values.push_back(line.substr(name.size() + 2));
    }
    return values;
}

TEST(DemoInputs, TheInputRegistersAndTheDiscreteInputMove) {
    // The demo's slave has port 1502 of its own; another test's demo may hold it for a moment.
    CommandResult r;
    for (int attempt = 0; attempt < 5; ++attempt) {
        r = RunCommand(Cli({"--lang", "en", "demo", "--cycles", "3"}), 60000);
        if (r.exitCode == 0 || r.err.find("Bind failed") == std::string::npos) break;
        std::this_thread::sleep_for(std::chrono::seconds(2));
    }
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(ValuesOf(r.out, "Spannung"), (std::vector<std::string>{"230.000 V", "230.959 V", "231.683 V"}));
    EXPECT_EQ(ValuesOf(r.out, "Strom"), (std::vector<std::string>{"12.000 A", "12.186 A", "12.360 A"}));
    EXPECT_EQ(ValuesOf(r.out, "Frequenz"), (std::vector<std::string>{"50.000 Hz", "50.042 Hz", "50.045 Hz"}));
    EXPECT_EQ(ValuesOf(r.out, "Digital Input 1"), (std::vector<std::string>{"OFF", "ON", "ON"}));
}

}  // namespace
#endif
