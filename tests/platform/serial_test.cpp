// The serial backend: line settings, read time-outs and cancel.
#include "platform/serial.h"

#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "support/serial_pair.h"

#if defined(_WIN32)
#include "platform/win32/serial_dcb.h"
#endif

#if !defined(_WIN32)
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>
#endif

namespace {

using Clock = std::chrono::steady_clock;

// Reaches the file descriptor of the POSIX backend's port for inspection.
#if !defined(_WIN32)
termios SettingsOf(const std::string& device, char parity, uint8_t stopBits, uint8_t dataBits) {
    platform::SerialHandle h = platform::OpenSerial(device, 19200, dataBits, stopBits, parity);
    termios tio{};
    EXPECT_TRUE(platform::IsValid(h));
    // The backend keeps the port raw; read the settings back through a second descriptor of the pty.
    const int fd = ::open(device.c_str(), O_RDWR | O_NOCTTY);
    tcgetattr(fd >= 0 ? fd : 0, &tio);
    if (fd >= 0) ::close(fd);
    platform::SerialClose(h);
    return tio;
}
#endif

TEST(Serial, UnknownParityLetterSetsNoParityBitButChecksParity) {
    SerialPair pair;
    ASSERT_TRUE(pair.Ok());
#if defined(_WIN32)
    // Wine reports fParity back from the tty's input flags, so the DCB is checked as it is built.
    DCB dcb{};
    dcb.DCBlength = sizeof dcb;
    dcb.fParity = 0;
    dcb.fOutxCtsFlow = 1;
    dcb.fOutX = 1;
    platform::ApplyLineSettings(dcb, 19200, 8, 1, 'X');
    EXPECT_EQ(dcb.Parity, NOPARITY);
    EXPECT_EQ(dcb.fParity, 1u);
    EXPECT_EQ(dcb.fOutxCtsFlow, 0u);
    EXPECT_EQ(dcb.fOutX, 0u);
    EXPECT_EQ(dcb.fDtrControl, static_cast<DWORD>(DTR_CONTROL_ENABLE));
    platform::ApplyLineSettings(dcb, 9600, 7, 2, 'N');
    EXPECT_EQ(dcb.fParity, 0u);
    EXPECT_EQ(dcb.StopBits, TWOSTOPBITS);
    EXPECT_EQ(dcb.ByteSize, 7);
    EXPECT_EQ(dcb.BaudRate, 9600u);
    platform::ApplyLineSettings(dcb, 9600, 8, 1, 'E');
    EXPECT_EQ(dcb.Parity, EVENPARITY);
    platform::ApplyLineSettings(dcb, 9600, 8, 1, 'O');
    EXPECT_EQ(dcb.Parity, ODDPARITY);
    EXPECT_EQ(dcb.StopBits, ONESTOPBIT);
    // And a real port opens with them.
    platform::SerialHandle h = platform::OpenSerial(pair.DeviceName(), 19200, 8, 1, 'X');
    ASSERT_TRUE(platform::IsValid(h));
    platform::SerialClose(h);
#else
    const termios tio = SettingsOf(pair.DeviceName(), 'X', 1, 8);
    EXPECT_EQ(tio.c_cflag & PARENB, 0u);
    EXPECT_NE(tio.c_iflag & INPCK, 0u);
#endif
}

#if !defined(_WIN32)
TEST(Serial, ParityCheckingAndSpeedMapToTermios) {
    // A pty keeps the input flags and the speed but may force 8 data bits without a parity bit
    // and ignores the stop bits, so only the parity checking and the speed are read back here.
    SerialPair pair;
    ASSERT_TRUE(pair.Ok());
    termios tio = SettingsOf(pair.DeviceName(), 'E', 2, 7);
    EXPECT_NE(tio.c_iflag & INPCK, 0u);
    EXPECT_EQ(cfgetospeed(&tio), static_cast<speed_t>(B19200));
    tio = SettingsOf(pair.DeviceName(), 'O', 1, 8);
    EXPECT_NE(tio.c_iflag & INPCK, 0u);
    tio = SettingsOf(pair.DeviceName(), 'N', 1, 8);
    EXPECT_EQ(tio.c_cflag & PARENB, 0u);
    EXPECT_EQ(tio.c_iflag & INPCK, 0u);
    EXPECT_EQ(tio.c_iflag & (IXON | IXOFF), 0u);
}
#endif

TEST(Serial, ReadEndsAboutFiftyMillisecondsAfterTheLastByte) {
    SerialPair pair;
    ASSERT_TRUE(pair.Ok());
    platform::SerialHandle h = platform::OpenSerial(pair.DeviceName(), 19200, 8, 1, 'N');
    ASSERT_TRUE(platform::IsValid(h));
    std::thread writer([&] {
        pair.Write({1, 2, 3});
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        pair.Write({4, 5});
    });
    uint8_t buffer[256];
    size_t got = 0;
    const auto start = Clock::now();
    ASSERT_TRUE(platform::SerialRead(h, buffer, sizeof buffer, got));
    const auto elapsed = Clock::now() - start;
    writer.join();
    EXPECT_EQ(got, 5u);
    EXPECT_LT(elapsed, std::chrono::milliseconds(1000));  // far from the 3560 ms total time-out
    platform::SerialClose(h);
}

TEST(Serial, ReadOfNothingEndsAfterTheTotalTimeout) {
    SerialPair pair;
    ASSERT_TRUE(pair.Ok());
    platform::SerialHandle h = platform::OpenSerial(pair.DeviceName(), 19200, 8, 1, 'N');
    ASSERT_TRUE(platform::IsValid(h));
    uint8_t buffer[16];
    size_t got = 99;
    const auto start = Clock::now();
    EXPECT_TRUE(platform::SerialRead(h, buffer, sizeof buffer, got));
    const auto elapsed = Clock::now() - start;
    EXPECT_EQ(got, 0u);
    // 1000 ms + 10 ms x 16
    EXPECT_GE(elapsed, std::chrono::milliseconds(1000));
    EXPECT_LT(elapsed, std::chrono::milliseconds(4000));
    platform::SerialClose(h);
}

#if !defined(_WIN32)
// Under Wine CancelIoEx does not break a synchronous read, so this holds for the POSIX backend only.
TEST(Serial, CancelBreaksAPendingReadAtOnce) {
    SerialPair pair;
    ASSERT_TRUE(pair.Ok());
    platform::SerialHandle h = platform::OpenSerial(pair.DeviceName(), 19200, 8, 1, 'N');
    ASSERT_TRUE(platform::IsValid(h));
    std::thread canceller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        platform::SerialCancel(h);
    });
    uint8_t buffer[256];
    size_t got = 0;
    const auto start = Clock::now();
    EXPECT_FALSE(platform::SerialRead(h, buffer, sizeof buffer, got));
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(1500));
    canceller.join();
    // The cancel stays: a read after it fails at once too.
    EXPECT_FALSE(platform::SerialRead(h, buffer, sizeof buffer, got));
    platform::SerialClose(h);
}

TEST(Serial, OpeningAPlainFileFails) {
    EXPECT_FALSE(platform::IsValid(platform::OpenSerial("/etc/hostname", 9600, 8, 1, 'N')));
}
#endif

TEST(Serial, WriteReachesTheOtherEnd) {
    SerialPair pair;
    ASSERT_TRUE(pair.Ok());
    platform::SerialHandle h = platform::OpenSerial(pair.DeviceName(), 19200, 8, 1, 'N');
    ASSERT_TRUE(platform::IsValid(h));
    const uint8_t data[] = {0x01, 0x03, 0x00, 0x00};
    size_t written = 0;
    ASSERT_TRUE(platform::SerialWrite(h, data, sizeof data, written));
    EXPECT_EQ(written, 4u);
    EXPECT_EQ(pair.Read(4, 2000), (std::vector<uint8_t>{0x01, 0x03, 0x00, 0x00}));
    platform::SerialClose(h);
}

}  // namespace
