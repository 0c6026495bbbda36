// The RTU server loop on a real serial pair (a pseudo-terminal natively, two COM ports mapped to a
// pty pair under Wine): framing by the read time-out, CRC check, unit filter, exact response bytes
// and a prompt stop while the thread is blocked in a read.
#include <gtest/gtest.h>

#include "slave/slave_test_support.h"
#include "support/serial_pair.h"

using namespace slavetest;

namespace {

#if defined(_WIN32)
// A synchronous ReadFile is not broken by a cancel under Wine; it ends with its time-out
// (1000 ms + 10 ms x 256 bytes).
constexpr int64_t kStopBoundMs = 5000;
#else
constexpr int64_t kStopBoundMs = 1000;
#endif

class RtuServerLoopTest : public ::testing::Test {
protected:
    void SetUp() override {
        SetEnglish(true);
        if (!pair.Ok()) GTEST_SKIP() << "no serial pair (under Wine run through tools/wine-run.sh)";
    }
    void TearDown() override { slave.Disconnect(); }

    void Start(uint8_t unitId = 1) {
        ASSERT_TRUE(slave.Connect(RtuSlaveConfig(pair.DeviceName(), unitId)));
        ASSERT_TRUE(WaitForLine(log, Localizer::IsEnglish(Localizer::Scope::Connection) ? "Slave RTU thread started."
                                                                                         : "Slave RTU-Thread gestartet."));
    }

    // Writes one frame and returns what comes back within timeoutMs.
    Bytes Ask(const Bytes& frame, int timeoutMs = 2500) {
        EXPECT_TRUE(pair.Write(frame));
        return pair.ReadFrame(timeoutMs);
    }

    SerialPair pair;
    ModbusClient slave;
    LogCapture log{slave};
};

TEST_F(RtuServerLoopTest, OpensThePortAndLogsTheLifecycle) {
    Start();
    EXPECT_EQ(log.Lines().front(), "Opening " + pair.DeviceName() + " @ 19200 Baud (Slave) ...");
    EXPECT_TRUE(log.Contains("Connected."));
    EXPECT_TRUE(slave.IsConnected());
    slave.Disconnect();
    const std::vector<std::string> lines = log.Lines();
    EXPECT_EQ(lines[lines.size() - 2], "Slave RTU thread stopped.");
    EXPECT_EQ(lines.back(), "Disconnected.");
}

TEST_F(RtuServerLoopTest, LifecycleLinesInGerman) {
    SetEnglish(false);
    Start();
    EXPECT_EQ(log.Lines().front(), "Oeffne " + pair.DeviceName() + " @ 19200 Baud (Slave) ...");
    EXPECT_TRUE(log.Contains("Verbunden."));
    slave.Disconnect();
    const std::vector<std::string> lines = log.Lines();
    EXPECT_EQ(lines[lines.size() - 2], "Slave RTU-Thread beendet.");
    EXPECT_EQ(lines.back(), "Getrennt.");
}

TEST_F(RtuServerLoopTest, APortThatCannotBeOpenedIsReported) {
#if defined(_WIN32)
    const std::string missing = "COM250";
#else
    const std::string missing = "/dev/kestrel-no-such-port";
#endif
    EXPECT_FALSE(slave.Connect(RtuSlaveConfig(missing)));
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{"Opening " + missing + " @ 19200 Baud (Slave) ...",
                                                     "Could not open serial port."}));
    EXPECT_FALSE(slave.IsConnected());
    log.Clear();
    SetEnglish(false);
    EXPECT_FALSE(slave.Connect(RtuSlaveConfig(missing)));
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{"Oeffne " + missing + " @ 19200 Baud (Slave) ...",
                                                     "Seriellen Port konnte nicht geoeffnet werden."}));
}

TEST_F(RtuServerLoopTest, ReadHoldingRegistersIsAnsweredWithExactBytes) {
    slave.Image().SetHoldingRegisters(0, {0x1234, 0x5678});
    Start();
    EXPECT_EQ(ToHex(Ask(Hex("01 03 00 00 00 02 C4 0B"))), "01 03 04 12 34 56 78 81 07");
    ASSERT_TRUE(WaitForLine(log, "Slave: FC03 read from 0, n=2"));
    EXPECT_TRUE(log.Contains("RX: 01 03 00 00 00 02 C4 0B"));
    EXPECT_TRUE(log.Contains("TX: 01 03 04 12 34 56 78 81 07"));
}

TEST_F(RtuServerLoopTest, WritesAndExceptionsOverRtu) {
    Start();
    EXPECT_EQ(ToHex(Ask(Hex("01 06 00 0A 00 07 E8 0A"))), "01 06 00 0A 00 07 E8 0A");
    ASSERT_TRUE(WaitForLine(log, "Slave: FC06 Register 10 = 7"));
    EXPECT_EQ(slave.Image().GetHoldingRegisters(10, 1), std::vector<uint16_t>{7});
    EXPECT_EQ(ToHex(Ask(BuildRtuRequest(1, 0x05, Hex("00 03 FF 00")))), ToHex(BuildRtuRequest(1, 0x05, Hex("00 03 FF 00"))));
    EXPECT_EQ(slave.Image().GetCoils(3, 1), std::vector<bool>{true});
    EXPECT_EQ(ToHex(Ask(Hex("01 2B 40 3F"))), "01 AB 01 9E F0");
    ASSERT_TRUE(WaitForLine(log, "Slave: Unknown FC 0x2b -> Exception"));
}

TEST_F(RtuServerLoopTest, InjectionOverRtu) {
    slave.exceptionInjectionEnabled = true;
    slave.exceptionInjectionCode = 2;
    Start();
    EXPECT_EQ(ToHex(Ask(Hex("01 03 00 00 00 02 C4 0B"))), "01 83 02 C0 F1");
}

TEST_F(RtuServerLoopTest, BadCrcIsLoggedOnceAndNotAnswered) {
    Start();
    EXPECT_TRUE(Ask(Hex("01 03 00 00 00 02 C4 0C"), 400).empty());
    ASSERT_TRUE(WaitForLine(log, "RTU CRC error."));
    EXPECT_EQ(ToHex(Ask(Hex("01 03 00 00 00 02 C4 0B"))), "01 03 04 00 00 00 00 FA 33");
    EXPECT_EQ(CountLines(log, "RTU CRC error."), 1u);
    EXPECT_EQ(SlaveLines(log), std::vector<std::string>{"Slave: FC03 read from 0, n=2"});
}

TEST_F(RtuServerLoopTest, BadCrcInGerman) {
    SetEnglish(false);
    Start();
    EXPECT_TRUE(Ask(Hex("01 03 00 00 00 02 00 00"), 400).empty());
    EXPECT_TRUE(WaitForLine(log, "RTU CRC Fehler."));
}

TEST_F(RtuServerLoopTest, ForeignUnitAndUnitZeroAreNeitherAnsweredNorLogged) {
    Start();
    EXPECT_TRUE(Ask(Hex("2A 03 00 00 00 02 C2 10"), 400).empty());  // unit 42
    EXPECT_TRUE(Ask(Hex("00 03 00 00 00 02 C5 DA"), 400).empty());  // unit 0: no broadcast answer
    EXPECT_EQ(ToHex(Ask(Hex("01 03 00 00 00 02 C4 0B"))), "01 03 04 00 00 00 00 FA 33");
    ASSERT_TRUE(WaitForLine(log, "Slave: FC03 read from 0, n=2"));
    EXPECT_EQ(SlaveLines(log), std::vector<std::string>{"Slave: FC03 read from 0, n=2"});
    EXPECT_EQ(CountLines(log, "RTU CRC error."), 0u);
    size_t tx = 0;
    for (const auto& line : log.Lines()) tx += line.rfind("TX:", 0) == 0 ? 1 : 0;
    EXPECT_EQ(tx, 1u);
}

TEST_F(RtuServerLoopTest, OwnUnitOtherThanOneIsServed) {
    Start(42);
    EXPECT_TRUE(Ask(Hex("01 03 00 00 00 02 C4 0B"), 400).empty());
    const Bytes response = Ask(Hex("2A 03 00 00 00 02 C2 10"));
    EXPECT_EQ(ToHex(response), ToHex(BuildRtuRequest(42, 3, Hex("04 00 00 00 00"))));
}

TEST_F(RtuServerLoopTest, FramesShorterThanFourBytesAreIgnored) {
    Start();
    EXPECT_TRUE(Ask(Hex("01 03 C4"), 400).empty());
    EXPECT_EQ(CountLines(log, "RTU CRC error."), 0u);
    EXPECT_EQ(ToHex(Ask(Hex("01 03 00 00 00 02 C4 0B"))), "01 03 04 00 00 00 00 FA 33");
}

TEST_F(RtuServerLoopTest, StopWhileBlockedInAReadIsPrompt) {
    Start();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // the thread now waits in its read
    const int64_t start = NowMs();
    slave.Disconnect();
    const int64_t elapsed = NowMs() - start;
    EXPECT_LE(elapsed, kStopBoundMs);
    const std::vector<std::string> lines = log.Lines();
    EXPECT_EQ(lines[lines.size() - 2], "Slave RTU thread stopped.");
    EXPECT_EQ(lines.back(), "Disconnected.");
}

TEST_F(RtuServerLoopTest, StopRightAfterServingIsPrompt) {
    Start();
    EXPECT_EQ(ToHex(Ask(Hex("01 03 00 00 00 02 C4 0B"))), "01 03 04 00 00 00 00 FA 33");
    const int64_t start = NowMs();
    slave.Disconnect();
    EXPECT_LE(NowMs() - start, kStopBoundMs);
    EXPECT_EQ(CountLines(log, "Slave RTU thread stopped."), 1u);
}

}  // namespace
