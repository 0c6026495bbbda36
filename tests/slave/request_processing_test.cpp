// Request processing of the slave, driven through the real TCP server over loopback: exact
// response bytes and exact log lines in both languages for every function code, the lenient
// rules (clamping, quantity 0, FC05 values, FC15/FC16 counts), drops, unit 0 and injection.
#include <gtest/gtest.h>

#include "slave/slave_test_support.h"

using namespace slavetest;

namespace {

class RequestProcessingTest : public ::testing::Test {
protected:
    void SetUp() override { SetEnglish(true); }
    void TearDown() override { slave.Disconnect(); }

    void Start(uint8_t unitId = 1) {
        ASSERT_TRUE(slave.Connect(TcpSlaveConfig(0, unitId)));
        ASSERT_TRUE(client.Connect(slave.ListeningPort()));
        // Let the accept be logged before a test looks at the log.
        ASSERT_TRUE(WaitForLine(log, Localizer::IsEnglish(Localizer::Scope::Connection) ? "Client connected: 127.0.0.1"
                                                                                         : "Client verbunden: 127.0.0.1"));
    }

    // Sends one request and returns the response; the slave's log line for it (if any) is
    // logged after the response goes out, so wait for the TX line's successor as well.
    Bytes Ask(const std::string& request) { return client.Exchange(Hex(request)); }

    // True when the request gets no answer while the connection stays up: a following FC03 still
    // gets its own answer, and nothing else came before it.
    void ExpectDropped(const std::string& request) {
        log.Clear();
        ASSERT_TRUE(client.Send(Hex(request)));
        const Bytes probe = Ask("7F 7F 00 00 00 06 01 03 00 00 00 01");
        EXPECT_EQ(ToHex(probe), "7F 7F 00 00 00 05 01 03 02 00 00");
        ASSERT_TRUE(WaitForLine(log, "Slave: FC03 read from 0, n=1"));
        EXPECT_EQ(SlaveLines(log), std::vector<std::string>{"Slave: FC03 read from 0, n=1"});
        EXPECT_EQ(CountLines(log, "TX: 7F 7F 00 00 00 05 01 03 02 00 00"), 1u);
        size_t tx = 0;
        for (const auto& line : log.Lines()) tx += line.rfind("TX:", 0) == 0 ? 1 : 0;
        EXPECT_EQ(tx, 1u) << "the dropped request was answered";
    }

    ModbusClient slave;
    LogCapture log{slave};
    TestClient client;
};

TEST_F(RequestProcessingTest, HoldingRegisterBlockWrapsFromTheTopAddressToZero) {
    slave.Image().SetHoldingRegisters(65535, {0x1111, 0x2222});  // the second lands on address 0
    Start();
    EXPECT_EQ(ToHex(Ask("00 01 00 00 00 06 01 03 FF FF 00 02")), "00 01 00 00 00 07 01 03 04 11 11 22 22");
    EXPECT_TRUE(WaitForLine(log, "Slave: FC03 read from 65535, n=2"));
}

TEST_F(RequestProcessingTest, CoilReadQuantityIsClampedTo2000) {
    slave.Image().SetCoils(0, {true, false, true});
    slave.Image().SetCoils(1999, {true});
    slave.Image().SetCoils(2000, {true});  // beyond the clamp: not sent
    Start();
    const Bytes response = Ask("00 02 00 00 00 06 01 01 00 00 13 88");  // quantity 5000
    ASSERT_EQ(response.size(), 6u + 3u + 250u);
    EXPECT_EQ(ToHex(Bytes(response.begin(), response.begin() + 10)), "00 02 00 00 00 FD 01 01 FA 05");
    for (size_t i = 10; i + 1 < response.size(); ++i) EXPECT_EQ(response[i], 0) << "byte " << i;
    EXPECT_EQ(response.back(), 0x80);  // coil 1999 is bit 7 of the last byte
    EXPECT_TRUE(WaitForLine(log, "Slave: FC01 Coils read from 0, n=2000"));
}

TEST_F(RequestProcessingTest, RegisterReadQuantityIsClampedTo125) {
    Start();
    const Bytes response = Ask("00 03 00 00 00 06 01 04 00 00 03 E8");  // FC04, quantity 1000
    ASSERT_EQ(response.size(), 6u + 3u + 250u);
    EXPECT_EQ(ToHex(Bytes(response.begin(), response.begin() + 9)), "00 03 00 00 00 FD 01 04 FA");
    const Bytes fc03 = Ask("00 04 00 00 00 06 01 03 00 00 00 7E");  // 126
    EXPECT_EQ(fc03.size(), 6u + 3u + 250u);
    EXPECT_TRUE(WaitForLine(log, "Slave: FC03 read from 0, n=125"));
}

TEST_F(RequestProcessingTest, QuantityZeroIsAnsweredWithAnEmptyPayload) {
    Start();
    EXPECT_EQ(ToHex(Ask("00 05 00 00 00 06 01 03 00 0A 00 00")), "00 05 00 00 00 03 01 03 00");
    EXPECT_TRUE(WaitForLine(log, "Slave: FC03 read from 10, n=0"));
    EXPECT_EQ(ToHex(Ask("00 06 00 00 00 06 01 01 00 0A 00 00")), "00 06 00 00 00 03 01 01 00");
    EXPECT_TRUE(WaitForLine(log, "Slave: FC01 Coils read from 10, n=0"));
}

TEST_F(RequestProcessingTest, ReadsPackBitsLeastSignificantFirstAndRegistersHighByteFirst) {
    slave.Image().SetCoils(100, {true, false, true, true, false, false, false, false, true, true});
    slave.Image().SetHoldingRegisters(7, {0xABCD, 0x0102});
    Start();
    EXPECT_EQ(ToHex(Ask("00 07 00 00 00 06 01 01 00 64 00 0A")), "00 07 00 00 00 05 01 01 02 0D 03");
    EXPECT_EQ(ToHex(Ask("00 08 00 00 00 06 01 03 00 07 00 03")), "00 08 00 00 00 09 01 03 06 AB CD 01 02 00 00");
}

TEST_F(RequestProcessingTest, DiscreteInputsAndInputRegistersReadAsZeroAndLogNothing) {
    slave.Image().SetCoils(0, {true, true});
    slave.Image().SetHoldingRegisters(0, {5, 6});
    Start();
    EXPECT_EQ(ToHex(Ask("00 09 00 00 00 06 01 02 00 00 00 02")), "00 09 00 00 00 04 01 02 01 00");
    EXPECT_EQ(ToHex(Ask("00 0A 00 00 00 06 01 04 00 00 00 02")), "00 0A 00 00 00 07 01 04 04 00 00 00 00");
    ASSERT_TRUE(WaitForLine(log, "TX: 00 0A 00 00 00 07 01 04 04 00 00 00 00"));
    EXPECT_TRUE(SlaveLines(log).empty());
}

TEST_F(RequestProcessingTest, SingleCoilWriteTakesOnlyFF00AsOn) {
    std::vector<std::pair<uint16_t, std::vector<bool>>> changes;
    slave.SetCoilsChangedCallback([&](uint16_t start, const std::vector<bool>& values) {
        // The image is already updated when the notification runs.
        EXPECT_EQ(slave.Image().GetCoils(start, 1), values);
        changes.emplace_back(start, values);
    });
    Start();
    EXPECT_EQ(ToHex(Ask("00 0B 00 00 00 06 01 05 00 07 FF 00")), "00 0B 00 00 00 06 01 05 00 07 FF 00");
    ASSERT_TRUE(WaitForLine(log, "Slave: FC05 Coil 7 = ON"));
    EXPECT_EQ(slave.Image().GetCoils(7, 1), std::vector<bool>{true});
    EXPECT_EQ(ToHex(Ask("00 0C 00 00 00 06 01 05 00 07 12 34")), "00 0C 00 00 00 06 01 05 00 07 12 34");
    ASSERT_TRUE(WaitForLine(log, "Slave: FC05 Coil 7 = OFF"));
    EXPECT_EQ(slave.Image().GetCoils(7, 1), std::vector<bool>{false});
    slave.Disconnect();
    ASSERT_EQ(changes.size(), 2u);
    EXPECT_EQ(changes[0].first, 7);
    EXPECT_EQ(changes[0].second, std::vector<bool>{true});
    EXPECT_EQ(changes[1].second, std::vector<bool>{false});
}

TEST_F(RequestProcessingTest, SingleRegisterWriteIsEchoedNotifiedAndLogged) {
    std::vector<std::pair<uint16_t, std::vector<uint16_t>>> changes;
    slave.SetRegisterChangedCallback(
        [&](uint16_t start, const std::vector<uint16_t>& values) { changes.emplace_back(start, values); });
    Start();
    EXPECT_EQ(ToHex(Ask("00 0D 00 00 00 06 01 06 00 0A 01 2C")), "00 0D 00 00 00 06 01 06 00 0A 01 2C");
    ASSERT_TRUE(WaitForLine(log, "Slave: FC06 Register 10 = 300"));
    EXPECT_EQ(slave.Image().GetHoldingRegisters(10, 1), std::vector<uint16_t>{300});
    slave.Disconnect();
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_EQ(changes[0].first, 10);
    EXPECT_EQ(changes[0].second, std::vector<uint16_t>{300});
}

TEST_F(RequestProcessingTest, MultipleCoilWriteUnpacksBitsAndReadsMissingBytesAsZero) {
    std::vector<bool> notified;
    slave.SetCoilsChangedCallback([&](uint16_t, const std::vector<bool>& values) { notified = values; });
    slave.Image().SetCoils(20, std::vector<bool>(12, true));
    Start();
    // Quantity 12 but only one data byte: coils 8..11 become 0.
    EXPECT_EQ(ToHex(Ask("00 0E 00 00 00 08 01 0F 00 14 00 0C 01 A5")), "00 0E 00 00 00 06 01 0F 00 14 00 0C");
    ASSERT_TRUE(WaitForLine(log, "Slave: FC0F 12 Coils from 20"));
    const std::vector<bool> expected{true, false, true, false, false, true, false, true,
                                     false, false, false, false};
    EXPECT_EQ(slave.Image().GetCoils(20, 12), expected);
    slave.Disconnect();
    EXPECT_EQ(notified, expected);
}

TEST_F(RequestProcessingTest, MultipleCoilWriteWrapsAtTheTopAndSwitchesOffEveryCoilPastItsBytes) {
    slave.Image().SetCoils(0, std::vector<bool>(2000, true));
    slave.Image().SetCoils(65520, std::vector<bool>(16, true));
    Start();
    // From 65530, 2,000 coils with one data byte (0xFF): 65530..65535 and 0..1 on, 2..1993 off.
    EXPECT_EQ(ToHex(Ask("00 0F 00 00 00 08 01 0F FF FA 07 D0 01 FF")), "00 0F 00 00 00 06 01 0F FF FA 07 D0");
    ASSERT_TRUE(WaitForLine(log, "Slave: FC0F 2000 Coils from 65530"));
    EXPECT_EQ(slave.Image().GetCoils(65520, 16), std::vector<bool>(16, true)) << "65520..65529 stay, the rest is on";
    EXPECT_EQ(slave.Image().GetCoils(0, 2), std::vector<bool>(2, true));
    EXPECT_EQ(slave.Image().GetCoils(2, 1992), std::vector<bool>(1992, false));
    EXPECT_EQ(slave.Image().GetCoils(1994, 6), std::vector<bool>(6, true)) << "past the quantity nothing changes";
}

TEST_F(RequestProcessingTest, MultipleRegisterWriteTakesTheByteCountOverTheQuantity) {
    std::vector<std::pair<uint16_t, std::vector<uint16_t>>> changes;
    slave.SetRegisterChangedCallback(
        [&](uint16_t start, const std::vector<uint16_t>& values) { changes.emplace_back(start, values); });
    Start();
    // Quantity 10, byte count 4: two registers are written, the quantity is logged and echoed.
    EXPECT_EQ(ToHex(Ask("00 0F 00 00 00 0B 01 10 00 05 00 0A 04 00 01 00 02")), "00 0F 00 00 00 06 01 10 00 05 00 0A");
    ASSERT_TRUE(WaitForLine(log, "Slave: FC10 written from 5, n=10"));
    EXPECT_EQ(slave.Image().GetHoldingRegisters(5, 3), (std::vector<uint16_t>{1, 2, 0}));
    slave.Disconnect();
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_EQ(changes[0].first, 5);
    EXPECT_EQ(changes[0].second, (std::vector<uint16_t>{1, 2}));
}

TEST_F(RequestProcessingTest, MultipleRegisterWriteWithAnOddByteCountFillsTheLastLowByteWithZero) {
    Start();
    EXPECT_EQ(ToHex(Ask("00 10 00 00 00 0A 01 10 00 00 00 02 03 12 34 56")), "00 10 00 00 00 06 01 10 00 00 00 02");
    ASSERT_TRUE(WaitForLine(log, "Slave: FC10 written from 0, n=2"));
    EXPECT_EQ(slave.Image().GetHoldingRegisters(0, 2), (std::vector<uint16_t>{0x1234, 0x5600}));
}

TEST_F(RequestProcessingTest, UnitZeroIsAnsweredWithUnitZeroAndForeignUnitsGetNothing) {
    slave.Image().SetHoldingRegisters(0, {42});
    Start(17);
    EXPECT_EQ(ToHex(Ask("00 11 00 00 00 06 00 03 00 00 00 01")), "00 11 00 00 00 05 00 03 02 00 2A");
    EXPECT_EQ(ToHex(Ask("00 12 00 00 00 06 11 03 00 00 00 01")), "00 12 00 00 00 05 11 03 02 00 2A");
    ASSERT_TRUE(client.Send(Hex("00 13 00 00 00 06 01 03 00 00 00 01")));  // unit 1 is foreign here
    EXPECT_EQ(client.Await(200), TestClient::Result::Silent);
    EXPECT_EQ(ToHex(Ask("00 14 00 00 00 06 11 03 00 00 00 01")), "00 14 00 00 00 05 11 03 02 00 2A");
    const int64_t deadline = NowMs() + 3000;
    while (CountLines(log, "Slave: FC03 read from 0, n=1") < 3 && NowMs() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(SlaveLines(log).size(), 3u);
    EXPECT_EQ(CountLines(log, "RX: 00 13 00 00 00 06"), 1u);  // it was read, and then dropped
}

TEST_F(RequestProcessingTest, UnknownFunctionGetsIllegalFunctionAndLowerCaseHexInTheLog) {
    Start();
    EXPECT_EQ(ToHex(Ask("00 15 00 00 00 02 01 2B")), "00 15 00 00 00 03 01 AB 01");
    EXPECT_TRUE(WaitForLine(log, "Slave: Unknown FC 0x2b -> Exception"));
    EXPECT_EQ(ToHex(Ask("00 16 00 00 00 06 01 07 00 00 00 00")), "00 16 00 00 00 03 01 87 01");
    EXPECT_TRUE(WaitForLine(log, "Slave: Unknown FC 0x7 -> Exception"));
    // FC23 and FC24 belong to the master only.
    EXPECT_EQ(ToHex(Ask("00 17 00 00 00 04 01 18 00 00")), "00 17 00 00 00 03 01 98 01");
    EXPECT_TRUE(WaitForLine(log, "Slave: Unknown FC 0x18 -> Exception"));
}

TEST_F(RequestProcessingTest, LogLinesAreGermanWhenTheConnectionSpeaksGerman) {
    SetEnglish(false);
    Start();
    Ask("00 01 00 00 00 06 01 01 00 03 00 04");
    Ask("00 02 00 00 00 06 01 03 00 04 00 02");
    Ask("00 03 00 00 00 06 01 05 00 01 FF 00");
    Ask("00 04 00 00 00 06 01 05 00 02 00 00");
    Ask("00 05 00 00 00 06 01 06 00 09 00 63");
    Ask("00 06 00 00 00 08 01 0F 00 0B 00 03 01 07");
    Ask("00 07 00 00 00 0B 01 10 00 0C 00 02 04 00 01 00 02");
    Ask("00 08 00 00 00 02 01 2B");
    ASSERT_TRUE(WaitForLine(log, "Slave: Unbekannter FC 0x2b -> Exception"));
    const std::vector<std::string> expected{
        "Slave: FC01 Coils gelesen ab 3, n=4",  "Slave: FC03 gelesen ab 4, n=2",
        "Slave: FC05 Coil 1 = ON",              "Slave: FC05 Coil 2 = OFF",
        "Slave: FC06 Register 9 = 99",          "Slave: FC0F 3 Coils ab 11",
        "Slave: FC10 geschrieben ab 12, n=2",   "Slave: Unbekannter FC 0x2b -> Exception"};
    EXPECT_EQ(SlaveLines(log), expected);
}

TEST_F(RequestProcessingTest, LogLinesInEnglish) {
    Start();
    Ask("00 01 00 00 00 06 01 01 00 03 00 04");
    Ask("00 02 00 00 00 06 01 03 00 04 00 02");
    Ask("00 03 00 00 00 06 01 05 00 01 FF 00");
    Ask("00 05 00 00 00 06 01 06 00 09 00 63");
    Ask("00 06 00 00 00 08 01 0F 00 0B 00 03 01 07");
    Ask("00 07 00 00 00 0B 01 10 00 0C 00 02 04 00 01 00 02");
    Ask("00 08 00 00 00 02 01 2B");
    ASSERT_TRUE(WaitForLine(log, "Slave: Unknown FC 0x2b -> Exception"));
    const std::vector<std::string> expected{
        "Slave: FC01 Coils read from 3, n=4", "Slave: FC03 read from 4, n=2",      "Slave: FC05 Coil 1 = ON",
        "Slave: FC06 Register 9 = 99",        "Slave: FC0F 3 Coils from 11",       "Slave: FC10 written from 12, n=2",
        "Slave: Unknown FC 0x2b -> Exception"};
    EXPECT_EQ(SlaveLines(log), expected);
}

TEST_F(RequestProcessingTest, ResponseLinesComeBeforeTheSlaveLine) {
    Start();
    log.Clear();
    Ask("00 01 00 00 00 06 01 03 00 00 00 01");
    ASSERT_TRUE(WaitForLine(log, "Slave: FC03 read from 0, n=1"));
    const std::vector<std::string> expected{"RX: 00 01 00 00 00 06", "RX: 01 03 00 00 00 01",
                                            "TX: 00 01 00 00 00 05 01 03 02 00 00", "Slave: FC03 read from 0, n=1"};
    EXPECT_EQ(log.Lines(), expected);
}

TEST_F(RequestProcessingTest, ShortFramesAndShortPdusAreDroppedSilently) {
    Start();
    ExpectDropped("00 20 00 00 00 01 01");                    // 7-byte frame: no function code
    ExpectDropped("00 21 00 00 00 05 01 06 00 01 00");        // FC06 with a 3-byte PDU
    ExpectDropped("00 22 00 00 00 05 01 03 00 01 00");        // FC03 with a 3-byte PDU
    ExpectDropped("00 23 00 00 00 06 01 0F 00 01 00 08");     // FC15 without its byte count
    ExpectDropped("00 24 00 00 00 09 01 10 00 00 00 02 04 00 01");  // FC16 byte count 4, 2 bytes
    EXPECT_EQ(slave.Image().GetHoldingRegisters(0, 2), (std::vector<uint16_t>{0, 0}));
}

TEST_F(RequestProcessingTest, InjectionAnswersTheRangeWithTheCodeAndLeavesTheImageAlone) {
    slave.exceptionInjectionEnabled = true;
    slave.exceptionInjectionCode = 2;
    slave.exceptionInjectionFrom = 100;
    slave.exceptionInjectionTo = 110;
    bool notified = false;
    slave.SetRegisterChangedCallback([&](uint16_t, const std::vector<uint16_t>&) { notified = true; });
    slave.SetCoilsChangedCallback([&](uint16_t, const std::vector<bool>&) { notified = true; });
    Start();
    log.Clear();
    EXPECT_EQ(ToHex(Ask("00 01 00 00 00 06 01 03 00 64 00 01")), "00 01 00 00 00 03 01 83 02");  // FROM
    EXPECT_EQ(ToHex(Ask("00 02 00 00 00 06 01 01 00 6E 00 01")), "00 02 00 00 00 03 01 81 02");  // TO
    EXPECT_EQ(ToHex(Ask("00 03 00 00 00 06 01 02 00 65 00 01")), "00 03 00 00 00 03 01 82 02");
    EXPECT_EQ(ToHex(Ask("00 04 00 00 00 06 01 04 00 65 00 01")), "00 04 00 00 00 03 01 84 02");
    EXPECT_EQ(ToHex(Ask("00 05 00 00 00 06 01 05 00 65 FF 00")), "00 05 00 00 00 03 01 85 02");
    EXPECT_EQ(ToHex(Ask("00 06 00 00 00 06 01 06 00 65 00 07")), "00 06 00 00 00 03 01 86 02");
    EXPECT_EQ(ToHex(Ask("00 07 00 00 00 08 01 0F 00 65 00 01 01 01")), "00 07 00 00 00 03 01 8F 02");
    EXPECT_EQ(ToHex(Ask("00 08 00 00 00 09 01 10 00 65 00 01 02 00 07")), "00 08 00 00 00 03 01 90 02");
    // Only the start address counts: a block starting just below the range is served.
    EXPECT_EQ(ToHex(Ask("00 09 00 00 00 06 01 03 00 63 00 05")), "00 09 00 00 00 0D 01 03 0A 00 00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(ToHex(Ask("00 0A 00 00 00 06 01 03 00 6F 00 01")), "00 0A 00 00 00 05 01 03 02 00 00");
    // Unknown function codes are not subject to injection.
    EXPECT_EQ(ToHex(Ask("00 0B 00 00 00 06 01 2B 00 65 00 01")), "00 0B 00 00 00 03 01 AB 01");
    ASSERT_TRUE(WaitForLine(log, "Slave: Unknown FC 0x2b -> Exception"));
    EXPECT_EQ(SlaveLines(log), (std::vector<std::string>{"Slave: FC03 read from 99, n=5", "Slave: FC03 read from 111, n=1",
                                                          "Slave: Unknown FC 0x2b -> Exception"}));
    EXPECT_EQ(slave.Image().GetCoils(101, 1), std::vector<bool>{false});
    EXPECT_EQ(slave.Image().GetHoldingRegisters(101, 1), std::vector<uint16_t>{0});
    slave.Disconnect();
    EXPECT_FALSE(notified);
}

TEST_F(RequestProcessingTest, InjectionStartValuesAndRange) {
    EXPECT_EQ(slave.responseDelayMs, 0u);
    EXPECT_FALSE(slave.exceptionInjectionEnabled);
    EXPECT_EQ(slave.exceptionInjectionCode, 4);
    EXPECT_EQ(slave.exceptionInjectionFrom, 0);
    EXPECT_EQ(slave.exceptionInjectionTo, 65535);
    EXPECT_FALSE(slave.IsInjectedAddress(0));
    slave.exceptionInjectionEnabled = true;
    EXPECT_TRUE(slave.IsInjectedAddress(0));
    EXPECT_TRUE(slave.IsInjectedAddress(65535));
    slave.exceptionInjectionFrom = 10;
    slave.exceptionInjectionTo = 20;
    EXPECT_FALSE(slave.IsInjectedAddress(9));
    EXPECT_TRUE(slave.IsInjectedAddress(10));
    EXPECT_TRUE(slave.IsInjectedAddress(20));
    EXPECT_FALSE(slave.IsInjectedAddress(21));
}

TEST_F(RequestProcessingTest, ResponseDelayHoldsBackNormalAndExceptionResponses) {
    slave.responseDelayMs = 300;
    Start();
    int64_t start = NowMs();
    EXPECT_EQ(ToHex(Ask("00 01 00 00 00 06 01 03 00 00 00 01")), "00 01 00 00 00 05 01 03 02 00 00");
    EXPECT_GE(NowMs() - start, 280);
    start = NowMs();
    EXPECT_EQ(ToHex(Ask("00 02 00 00 00 02 01 2B")), "00 02 00 00 00 03 01 AB 01");
    EXPECT_GE(NowMs() - start, 280);
}

TEST_F(RequestProcessingTest, WritesFromTheWindowSideAreServed) {
    Start();
    slave.Image().SetHoldingRegisters(3, {77});
    EXPECT_EQ(ToHex(Ask("00 01 00 00 00 06 01 03 00 03 00 01")), "00 01 00 00 00 05 01 03 02 00 4D");
}

}  // namespace
