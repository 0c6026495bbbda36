// The master over a real serial line: a pseudo-terminal pair natively, two COM ports mapped onto a
// pty pair under Wine. The test plays the device at the other end.
#include <chrono>
#include <future>

#include <gtest/gtest.h>

#include "common/localizer.h"
#include "protocol/modbus_client.h"
#include "support/log_capture.h"
#include "support/serial_pair.h"

using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::string>;

namespace {

Bytes WithCrc(Bytes frame) {
    const uint16_t crc = Crc16(frame.data(), frame.size());
    frame.push_back(static_cast<uint8_t>(crc & 0xFF));
    frame.push_back(static_cast<uint8_t>(crc >> 8));
    return frame;
}

class RtuMaster : public testing::Test {
protected:
    void SetUp() override {
        if (!pair.Ok()) GTEST_SKIP() << "no serial pair (under Wine, run through tools/wine-run.sh)";
        Localizer::SetLanguage(Localizer::Scope::Connection, 1);
        ConnectionConfig config;
        config.transport = 1;
        config.serialPort = pair.DeviceName();
        config.baudRate = 19200;
        ASSERT_TRUE(client.Connect(config));
        log.Clear();
    }
    void TearDown() override { Localizer::SetLanguage(Localizer::Scope::Connection, 0); }

    // The device answers the next request with `response` and hands back the request it got.
    std::future<Bytes> AnswerNext(Bytes response) {
        return std::async(std::launch::async, [this, response] {
            Bytes request = pair.ReadFrame(3000);
            if (!response.empty()) pair.Write(response);
            return request;
        });
    }

    SerialPair pair;
    ModbusClient client;
    LogCapture log{client};
};

TEST_F(RtuMaster, ReadHoldingRegistersExchangesExactFrames) {
    const Bytes response = WithCrc({0x01, 0x03, 0x04, 0x00, 0x0A, 0xFF, 0xFF});
    auto device = AnswerNext(response);
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 0, 10, words));
    EXPECT_EQ(device.get(), (Bytes{0x01, 0x03, 0x00, 0x00, 0x00, 0x0A, 0xC5, 0xCD}));
    EXPECT_EQ(words, (std::vector<uint16_t>{10, 0xFFFF}));
    EXPECT_EQ(log.Lines(), (Lines{"TX: 01 03 00 00 00 0A C5 CD", "RX: " + HexDump(response)}));
}

TEST_F(RtuMaster, WriteSingleCoilSendsFf00AndCrc) {
    auto device = AnswerNext(WithCrc({0x01, 0x05, 0x00, 0x0A, 0xFF, 0x00}));
    ASSERT_TRUE(client.WriteSingleCoil(1, 10, true));
    EXPECT_EQ(device.get(), WithCrc({0x01, 0x05, 0x00, 0x0A, 0xFF, 0x00}));
}

TEST_F(RtuMaster, ResponseWithWrongCrcIsParsedLikeAGoodOne) {
    auto device = AnswerNext({0x01, 0x03, 0x02, 0x12, 0x34, 0x00, 0x00});
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 0, 1, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{0x1234}));
    device.get();
}

TEST_F(RtuMaster, ExceptionResponseWithAnyCrcGivesExceptionText) {
    auto device = AnswerNext({0x01, 0x83, 0x02, 0xAA, 0xBB});
    std::vector<uint16_t> words;
    EXPECT_FALSE(client.ReadHoldingRegisters(1, 0, 1, words));
    device.get();
    EXPECT_EQ(log.Lines().back(), "Modbus Exception: 2");
}

TEST_F(RtuMaster, Fc06ExceptionCodeTwoInEnglish) {
    auto device = AnswerNext(WithCrc({0x01, 0x86, 0x02}));
    EXPECT_FALSE(client.WriteSingleRegister(1, 0, 1));
    device.get();
    EXPECT_EQ(log.Lines().back(), "Modbus Exception FC06: 2 Consider using FC10 instead of FC06.");
}

TEST_F(RtuMaster, ByteCountThreeTakesTheSecondLowByteFromTheCrc) {
    const Bytes response = WithCrc({0x01, 0x03, 0x03, 0x00, 0x01, 0x02});
    auto device = AnswerNext(response);
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 0, 2, words));
    device.get();
    EXPECT_EQ(words, (std::vector<uint16_t>{0x0001, static_cast<uint16_t>(0x0200 | response[6])}));
}

TEST_F(RtuMaster, ReadFifoQueueCountsFromTheUnitByte) {
    auto device = AnswerNext(WithCrc({0x01, 0x18, 0x00, 0x04, 0x00, 0x01, 0xCA, 0xFE}));
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadFifoQueue(1, 7, words));
    EXPECT_EQ(device.get(), WithCrc({0x01, 0x18, 0x00, 0x07}));
    EXPECT_EQ(words, (std::vector<uint16_t>{0xCAFE}));
}

TEST_F(RtuMaster, SilentDeviceFailsAfterTheTotalTimeoutWithoutRecvErrorLine) {
    auto device = AnswerNext({});
    std::vector<uint16_t> words;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(client.ReadHoldingRegisters(1, 0, 1, words));
    const auto elapsed = std::chrono::steady_clock::now() - start;
    device.get();
    // 1000 ms + 10 ms x 256 requested bytes, after the 50 ms pause; generous bounds.
    EXPECT_GE(elapsed, std::chrono::milliseconds(3000));
    EXPECT_LT(elapsed, std::chrono::milliseconds(8000));
    EXPECT_EQ(log.Lines(), (Lines{"TX: 01 03 00 00 00 01 84 0A", "ReadHoldingRegisters failed."}));
    EXPECT_TRUE(client.IsConnected());
}

TEST_F(RtuMaster, SilentDeviceInGerman) {
    Localizer::SetLanguage(Localizer::Scope::Connection, 0);
    auto device = AnswerNext({});
    EXPECT_FALSE(client.WriteMultipleCoils(1, 0, {true}));
    device.get();
    EXPECT_EQ(log.Lines().back(), "WriteMultipleCoils fehlgeschlagen.");
}

TEST_F(RtuMaster, StaleBytesBeforeTheRequestArePurged) {
    ASSERT_TRUE(pair.Write({0xDE, 0xAD}));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    auto device = AnswerNext(WithCrc({0x01, 0x06, 0x00, 0x01, 0x00, 0x02}));
    EXPECT_TRUE(client.WriteSingleRegister(1, 1, 2));
    device.get();
    EXPECT_EQ(log.Lines().back(), "RX: " + HexDump(WithCrc({0x01, 0x06, 0x00, 0x01, 0x00, 0x02})));
}

TEST(RtuOpen, MissingPortLogsOpeningAndCouldNotOpen) {
    Localizer::SetLanguage(Localizer::Scope::Connection, 1);
    ModbusClient client;
    LogCapture log(client);
    ConnectionConfig config;
    config.transport = 1;
#if defined(_WIN32)
    config.serialPort = "COM250";
#else
    config.serialPort = "/dev/kestrel-no-such-port";
#endif
    config.baudRate = 19200;
    EXPECT_FALSE(client.Connect(config));
    EXPECT_FALSE(client.IsConnected());
    EXPECT_EQ(log.Lines(), (Lines{"Opening " + config.serialPort + " @ 19200 Baud ...", "Could not open serial port."}));
    Localizer::SetLanguage(Localizer::Scope::Connection, 0);
    log.Clear();
    EXPECT_FALSE(client.Connect(config));
    EXPECT_EQ(log.Lines(), (Lines{"Oeffne " + config.serialPort + " @ 19200 Baud ...",
                                  "Seriellen Port konnte nicht geoeffnet werden."}));
}

}  // namespace
