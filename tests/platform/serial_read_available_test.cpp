// The listener's read of the serial seam: it returns what has arrived as soon as something has,
// and nothing after its short wait when the line is quiet. Natively on a pty, under Wine on a COM
// pair mapped onto a socat pty pair.
#include "platform/serial.h"

#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "support/serial_pair.h"

namespace {

std::vector<uint8_t> ReadOnce(platform::SerialHandle h, uint32_t waitMs, bool& ok) {
    std::vector<uint8_t> buffer(256);
    size_t received = 0;
    ok = platform::SerialReadAvailable(h, buffer.data(), buffer.size(), waitMs, received);
    buffer.resize(received);
    return buffer;
}

}  // namespace

TEST(SerialReadAvailable, AQuietLineGivesNothingAfterTheWait) {
    SerialPair pair;
    ASSERT_TRUE(pair.Ok());
    platform::SerialHandle h = platform::OpenSerial(pair.DeviceName(), 19200, 8, 1, 'N');
    ASSERT_TRUE(platform::IsValid(h));
    bool ok = false;
    EXPECT_EQ(ReadOnce(h, 20, ok), std::vector<uint8_t>{});
    EXPECT_TRUE(ok);
    platform::SerialClose(h);
}

TEST(SerialReadAvailable, ReturnsTheFirstBytesWithoutWaitingForTheRest) {
    SerialPair pair;
    ASSERT_TRUE(pair.Ok());
    platform::SerialHandle h = platform::OpenSerial(pair.DeviceName(), 19200, 8, 1, 'N');
    ASSERT_TRUE(platform::IsValid(h));
    ASSERT_TRUE(pair.Write({0x01, 0x03, 0x00}));
    // The rest comes a long while later: a read that waited for a gap or for more would hold both.
    std::thread later([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
        pair.Write({0x00, 0x00, 0x02});
    });
    bool ok = false;
    std::vector<uint8_t> first;
    for (int i = 0; i < 20 && first.empty(); ++i) first = ReadOnce(h, 50, ok);
    EXPECT_EQ(first, (std::vector<uint8_t>{0x01, 0x03, 0x00}));
    std::vector<uint8_t> second;
    for (int i = 0; i < 100 && second.empty(); ++i) second = ReadOnce(h, 50, ok);
    EXPECT_EQ(second, (std::vector<uint8_t>{0x00, 0x00, 0x02}));
    later.join();
    platform::SerialClose(h);
}
