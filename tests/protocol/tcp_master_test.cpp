// The master over real loopback sockets against a scripted peer: exact request bytes, exact log
// lines in both languages, and the deliberate leniencies of the response checks.
#include <chrono>
#include <memory>

#include <gtest/gtest.h>

#include "common/localizer.h"
#include "protocol/modbus_client.h"
#include "support/log_capture.h"
#include "support/scripted_tcp_peer.h"

using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::string>;

namespace {

class TcpMaster : public testing::Test {
protected:
    void SetUp() override { Localizer::SetLanguage(Localizer::Scope::Connection, 1); }
    void TearDown() override { Localizer::SetLanguage(Localizer::Scope::Connection, 0); }

    // Starts the scripted peer and connects the client to it; the log starts empty.
    void Start(ScriptedTcpPeer::Script script) {
        peer = std::make_unique<ScriptedTcpPeer>(std::move(script));
        ConnectionConfig config;
        config.ipAddress = "127.0.0.1";
        config.port = peer->Port();
        ASSERT_TRUE(client.Connect(config));
        log.Clear();
    }

    // A peer that answers one request with `response` and then waits for the client to close.
    static ScriptedTcpPeer::Script AnswerOnce(Bytes response) {
        return [response](ScriptedTcpPeer& p) {
            if (!p.Accept()) return;
            p.ReceiveTcpRequest();
            p.Send(response);
            p.Receive(1);
        };
    }

    ModbusClient client;
    LogCapture log{client};
    std::unique_ptr<ScriptedTcpPeer> peer;
};

TEST_F(TcpMaster, ConnectLogsConnectingThenConnected) {
    ScriptedTcpPeer p([](ScriptedTcpPeer& s) { s.Accept(); s.Receive(1); });
    ConnectionConfig config;
    config.port = p.Port();
    ASSERT_TRUE(client.Connect(config));
    EXPECT_TRUE(client.IsConnected());
    EXPECT_EQ(log.Lines(), (Lines{"Connecting to 127.0.0.1:" + std::to_string(p.Port()) + " ...", "Connected."}));
    client.Disconnect();
    EXPECT_FALSE(client.IsConnected());
    EXPECT_EQ(log.Lines().back(), "Disconnected.");
}

TEST_F(TcpMaster, ConnectLogsInGermanByDefault) {
    Localizer::SetLanguage(Localizer::Scope::Connection, 0);
    ScriptedTcpPeer p([](ScriptedTcpPeer& s) { s.Accept(); s.Receive(1); });
    ConnectionConfig config;
    config.port = p.Port();
    ASSERT_TRUE(client.Connect(config));
    client.Disconnect();
    EXPECT_EQ(log.Lines(), (Lines{"Verbinde mit 127.0.0.1:" + std::to_string(p.Port()) + " ...", "Verbunden.", "Getrennt."}));
}

TEST_F(TcpMaster, ConnectingWhileConnectedFirstDisconnects) {
    ScriptedTcpPeer first([](ScriptedTcpPeer& s) { s.Accept(); s.Receive(1); });
    ScriptedTcpPeer second([](ScriptedTcpPeer& s) { s.Accept(); s.Receive(1); });
    ConnectionConfig config;
    config.port = first.Port();
    ASSERT_TRUE(client.Connect(config));
    log.Clear();
    config.port = second.Port();
    ASSERT_TRUE(client.Connect(config));
    EXPECT_EQ(log.Lines(),
              (Lines{"Disconnected.", "Connecting to 127.0.0.1:" + std::to_string(second.Port()) + " ...", "Connected."}));
}

TEST_F(TcpMaster, RefusedConnectionLogsErrorNumberAndStaysClosed) {
    const uint16_t closedPort = ScriptedTcpPeer::ClosedPort();
    ConnectionConfig config;
    config.port = closedPort;
    EXPECT_FALSE(client.Connect(config));
    EXPECT_FALSE(client.IsConnected());
    const Lines lines = log.Lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "Connecting to 127.0.0.1:" + std::to_string(closedPort) + " ...");
    const std::string prefix = "TCP connection failed: ";
    ASSERT_EQ(lines[1].rfind(prefix, 0), 0u) << lines[1];
    const std::string number = lines[1].substr(prefix.size());
    ASSERT_FALSE(number.empty());
    EXPECT_NE(number, "0");
    for (char c : number) EXPECT_TRUE(c >= '0' && c <= '9') << lines[1];
}

TEST_F(TcpMaster, RefusedConnectionInGerman) {
    Localizer::SetLanguage(Localizer::Scope::Connection, 0);
    const uint16_t closedPort = ScriptedTcpPeer::ClosedPort();
    ConnectionConfig config;
    config.port = closedPort;
    EXPECT_FALSE(client.Connect(config));
    ASSERT_EQ(log.Lines().size(), 2u);
    EXPECT_EQ(log.Lines()[1].rfind("TCP-Verbindung fehlgeschlagen: ", 0), 0u) << log.Lines()[1];
}

TEST_F(TcpMaster, DisconnectAlwaysLogsEvenWhenNothingIsOpen) {
    client.Disconnect();
    client.Disconnect();
    EXPECT_EQ(log.Lines(), (Lines{"Disconnected.", "Disconnected."}));
}

TEST_F(TcpMaster, ReadHoldingRegistersSendsExactFrameAndLogsTxRx) {
    Start(AnswerOnce({0x00, 0x00, 0x00, 0x00, 0x00, 0x07, 0x01, 0x03, 0x04, 0x12, 0x34, 0xAB, 0xCD}));
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 0, 2, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{0x1234, 0xABCD}));
    client.Disconnect();
    peer->Join();
    EXPECT_EQ(peer->Received(), (Bytes{0x00, 0x00, 0x00, 0x00, 0x00, 0x06, 0x01, 0x03, 0x00, 0x00, 0x00, 0x02}));
    EXPECT_EQ(log.Lines(), (Lines{"TX: 00 00 00 00 00 06 01 03 00 00 00 02", "RX: 00 00 00 00 00 07",
                                  "RX: 01 03 04 12 34 AB CD", "Disconnected."}));
}

TEST_F(TcpMaster, ResponseWithOtherTransactionAndUnitIdIsAccepted) {
    Start(AnswerOnce({0x77, 0x77, 0x00, 0x00, 0x00, 0x05, 0x42, 0x03, 0x02, 0x00, 0x2A}));
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 100, 1, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{42}));
}

TEST_F(TcpMaster, ResponseWithOtherFunctionCodeAndProtocolIdIsAccepted) {
    Start(AnswerOnce({0x00, 0x00, 0x12, 0x34, 0x00, 0x05, 0x01, 0x04, 0x02, 0x00, 0x07}));
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 100, 1, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{7}));
}

TEST_F(TcpMaster, ShortMbapLengthOfFc03IsCompletedFromTheStreamAndCorrected) {
    // The length field says 5 (unit, fc, byte count, 2 bytes) but the byte count says 4 data bytes.
    Start(AnswerOnce({0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x01, 0x03, 0x04, 0x00, 0x01, 0x00, 0x02}));
    const Bytes request = client.BuildTcpRequest(1, 3, {0x00, 0x00, 0x00, 0x02});
    Bytes response;
    ASSERT_TRUE(client.TcpTransaction(request, response));
    EXPECT_EQ(response, (Bytes{0x00, 0x00, 0x00, 0x00, 0x00, 0x07, 0x01, 0x03, 0x04, 0x00, 0x01, 0x00, 0x02}));
    EXPECT_EQ(log.Lines(), (Lines{"TX: 00 00 00 00 00 06 01 03 00 00 00 02", "RX: 00 00 00 00 00 05",
                                  "RX: 01 03 04 00 01", "RX: 00 02"}));
}

TEST_F(TcpMaster, ShortMbapLengthOfFc04IsRepairedToo) {
    Start(AnswerOnce({0x00, 0x00, 0x00, 0x00, 0x00, 0x03, 0x01, 0x04, 0x02, 0xBE, 0xEF}));
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadInputRegisters(1, 0, 1, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{0xBEEF}));
}

TEST_F(TcpMaster, ByteCountThreeYieldsTwoWordsTheSecondReadingPastTheCount) {
    // Length 7: unit, fc, byte count 3, and four data bytes; the fourth lies beyond the count.
    Start(AnswerOnce({0x00, 0x00, 0x00, 0x00, 0x00, 0x07, 0x01, 0x03, 0x03, 0x11, 0x22, 0x33, 0x44}));
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 0, 2, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{0x1122, 0x3344}));
}

TEST_F(TcpMaster, MbapLengthZeroGivesEmptyRxLineAndFailsWithoutMessage) {
    Start(AnswerOnce({0x00, 0x00, 0x00, 0x00, 0x00, 0x00}));
    std::vector<uint16_t> words;
    EXPECT_FALSE(client.ReadHoldingRegisters(1, 0, 1, words));
    EXPECT_EQ(log.Lines(), (Lines{"TX: 00 00 00 00 00 06 01 03 00 00 00 01", "RX: 00 00 00 00 00 00", "RX: "}));
}

TEST_F(TcpMaster, TransactionIdsCountUpAcrossOperations) {
    Start([](ScriptedTcpPeer& p) {
        if (!p.Accept()) return;
        for (int i = 0; i < 3; ++i) {
            const Bytes request = p.ReceiveTcpRequest();
            if (request.size() < 12) return;
            p.Send({request[0], request[1], 0x00, 0x00, 0x00, 0x06, 0x01, 0x06, 0x00, 0x01, 0x00, 0x02});
        }
        p.Receive(1);
    });
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(client.WriteSingleRegister(1, 1, 2));
    client.Disconnect();
    peer->Join();
    const Bytes received = peer->Received();
    ASSERT_EQ(received.size(), 36u);
    EXPECT_EQ(received[1], 0);
    EXPECT_EQ(received[13], 1);
    EXPECT_EQ(received[25], 2);
}

TEST_F(TcpMaster, WriteMultipleRegistersWith200ValuesSendsQuantity200AndByteCount144) {
    Start(AnswerOnce({0x00, 0x00, 0x00, 0x00, 0x00, 0x06, 0x01, 0x10, 0x00, 0x05, 0x00, 0xC8}));
    std::vector<uint16_t> values(200);
    for (size_t i = 0; i < values.size(); ++i) values[i] = static_cast<uint16_t>(i);
    ASSERT_TRUE(client.WriteMultipleRegisters(1, 5, values));
    client.Disconnect();
    peer->Join();
    const Bytes received = peer->Received();
    ASSERT_EQ(received.size(), 6u + 7u + 400u);
    // MBAP length = 7 + 400 = 407 = 0x0197
    EXPECT_EQ(received[4], 0x01);
    EXPECT_EQ(received[5], 0x97);
    EXPECT_EQ(received[7], 0x10);
    EXPECT_EQ(received[8], 0x00);
    EXPECT_EQ(received[9], 0x05);
    EXPECT_EQ(received[10], 0x00);
    EXPECT_EQ(received[11], 0xC8);
    EXPECT_EQ(received[12], 144);
    EXPECT_EQ(received[13 + 2 * 199], 0x00);
    EXPECT_EQ(received[13 + 2 * 199 + 1], 199);
}

TEST_F(TcpMaster, WriteRequestsCarryTheDocumentedPdus) {
    Start([](ScriptedTcpPeer& p) {
        if (!p.Accept()) return;
        for (int i = 0; i < 4; ++i) {
            const Bytes request = p.ReceiveTcpRequest();
            if (request.size() < 8) return;
            p.Send({request[0], request[1], 0x00, 0x00, 0x00, 0x06, 0x01, request[7], 0x00, 0x00, 0x00, 0x00});
        }
        p.Receive(1);
    });
    ASSERT_TRUE(client.WriteSingleCoil(1, 10, true));
    ASSERT_TRUE(client.WriteSingleCoil(1, 11, false));
    ASSERT_TRUE(client.WriteMultipleCoils(2, 19, {true, false, true, true, false, false, true, true, true, false}));
    ASSERT_TRUE(client.WriteSingleRegister(3, 0x1234, 0xABCD));
    client.Disconnect();
    peer->Join();
    EXPECT_EQ(peer->Received(),
              (Bytes{0x00, 0x00, 0x00, 0x00, 0x00, 0x06, 0x01, 0x05, 0x00, 0x0A, 0xFF, 0x00,        //
                     0x00, 0x01, 0x00, 0x00, 0x00, 0x06, 0x01, 0x05, 0x00, 0x0B, 0x00, 0x00,        //
                     0x00, 0x02, 0x00, 0x00, 0x00, 0x09, 0x02, 0x0F, 0x00, 0x13, 0x00, 0x0A, 0x02,  //
                     0xCD, 0x01,                                                                    //
                     0x00, 0x03, 0x00, 0x00, 0x00, 0x06, 0x03, 0x06, 0x12, 0x34, 0xAB, 0xCD}));
}

TEST_F(TcpMaster, WriteEchoIsNotCompared) {
    Start(AnswerOnce({0x00, 0x00, 0x00, 0x00, 0x00, 0x06, 0x09, 0x06, 0x99, 0x99, 0x99, 0x99}));
    EXPECT_TRUE(client.WriteSingleRegister(1, 1, 1));
}

TEST_F(TcpMaster, ReadCoilsUnpacksBitsLeastSignificantFirst) {
    Start(AnswerOnce({0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x01, 0x01, 0x02, 0xCD, 0x01}));
    std::vector<bool> bits;
    ASSERT_TRUE(client.ReadCoils(1, 19, 10, bits));
    EXPECT_EQ(bits, (std::vector<bool>{true, false, true, true, false, false, true, true, true, false}));
}

TEST_F(TcpMaster, ReadCoilsShorterThanItsByteCountFails) {
    Start(AnswerOnce({0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0x01, 0x02, 0x02, 0xCD}));
    std::vector<bool> bits;
    EXPECT_FALSE(client.ReadDiscreteInputs(1, 0, 10, bits));
    const Lines lines = log.Lines();
    EXPECT_EQ(lines.back(), "RX: 01 02 02 CD");  // false without a message of its own
}

TEST_F(TcpMaster, ReadWriteMultipleRegistersFrameAndWords) {
    Start(AnswerOnce({0x00, 0x00, 0x00, 0x00, 0x00, 0x07, 0x01, 0x17, 0x04, 0x00, 0x0A, 0x00, 0x0B}));
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadWriteMultipleRegisters(1, 3, 2, 0x10, {0x0102, 0x0304, 0x0506}, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{10, 11}));
    client.Disconnect();
    peer->Join();
    EXPECT_EQ(peer->Received(), (Bytes{0x00, 0x00, 0x00, 0x00, 0x00, 0x11, 0x01, 0x17, 0x00, 0x03, 0x00, 0x02, 0x00,
                                       0x10, 0x00, 0x03, 0x06, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06}));
}

TEST_F(TcpMaster, ReadFifoQueueTakesTheWordsItHolds) {
    // byte count 6, FIFO count 2, values 0x1111 0x2222
    Start(AnswerOnce({0x00, 0x00, 0x00, 0x00, 0x00, 0x0A, 0x01, 0x18, 0x00, 0x06, 0x00, 0x02, 0x11, 0x11, 0x22, 0x22}));
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadFifoQueue(1, 0x04DE, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{0x1111, 0x2222}));
    client.Disconnect();
    peer->Join();
    EXPECT_EQ(peer->Received(), (Bytes{0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0x01, 0x18, 0x04, 0xDE}));
}

TEST_F(TcpMaster, ReadFifoQueueEndingEarlyReturnsTheWordsThatFitted) {
    // FIFO count 3 but only one and a half values came.
    Start(AnswerOnce({0x00, 0x00, 0x00, 0x00, 0x00, 0x09, 0x01, 0x18, 0x00, 0x08, 0x00, 0x03, 0x11, 0x11, 0x22}));
    std::vector<uint16_t> words{9, 9, 9};
    ASSERT_TRUE(client.ReadFifoQueue(1, 0, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{0x1111}));
}

TEST_F(TcpMaster, ReadFifoQueueShorterThanSevenBytesAfterHeaderFails) {
    Start(AnswerOnce({0x00, 0x00, 0x00, 0x00, 0x00, 0x06, 0x01, 0x18, 0x00, 0x02, 0x00, 0x00}));
    std::vector<uint16_t> words;
    EXPECT_FALSE(client.ReadFifoQueue(1, 0, words));
    EXPECT_EQ(log.Lines().back(), "RX: 01 18 00 02 00 00");
}

TEST_F(TcpMaster, SilentPeerTimesOutAfterThreeSecondsAndStaysConnected) {
    Start([](ScriptedTcpPeer& p) {
        if (!p.Accept()) return;
        p.ReceiveTcpRequest();
        p.Receive(1);  // silent until the client goes away (bounded by its own 3 s time-out)
    });
    std::vector<uint16_t> words;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(client.ReadHoldingRegisters(1, 0, 1, words));
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(elapsed, std::chrono::milliseconds(2500));
    EXPECT_LT(elapsed, std::chrono::milliseconds(8000));
    EXPECT_TRUE(client.IsConnected());
    const Lines lines = log.Lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1].rfind("TCP recv error: ", 0), 0u) << lines[1];
    EXPECT_EQ(lines[2], "ReadHoldingRegisters failed.");
}

TEST_F(TcpMaster, OperationsWhileDisconnectedReturnFalseAndLogNothing) {
    std::vector<bool> bits;
    std::vector<uint16_t> words;
    EXPECT_FALSE(client.ReadCoils(1, 0, 1, bits));
    EXPECT_FALSE(client.ReadDiscreteInputs(1, 0, 1, bits));
    EXPECT_FALSE(client.ReadHoldingRegisters(1, 0, 1, words));
    EXPECT_FALSE(client.ReadInputRegisters(1, 0, 1, words));
    EXPECT_FALSE(client.WriteSingleCoil(1, 0, true));
    EXPECT_FALSE(client.WriteSingleRegister(1, 0, 1));
    EXPECT_FALSE(client.WriteMultipleCoils(1, 0, {true}));
    EXPECT_FALSE(client.WriteMultipleRegisters(1, 0, {1}));
    EXPECT_FALSE(client.ReadWriteMultipleRegisters(1, 0, 1, 0, {1}, words));
    EXPECT_FALSE(client.ReadFifoQueue(1, 0, words));
    EXPECT_TRUE(log.Lines().empty());
    EXPECT_EQ(client.TransactionCounter(), 0u);
}

// ---- failure and exception texts of every operation, in both languages ----

struct OperationCase {
    const char* name;
    uint8_t functionCode;
    std::function<bool(ModbusClient&)> run;
    const char* exceptionText;  // for exception code 2, English
};

std::vector<OperationCase> AllOperations() {
    static std::vector<bool> bits;
    static std::vector<uint16_t> words;
    return {
        {"ReadCoils", 0x01, [](ModbusClient& c) { return c.ReadCoils(1, 0, 1, bits); }, "Modbus Exception: 2"},
        {"ReadDiscreteInputs", 0x02, [](ModbusClient& c) { return c.ReadDiscreteInputs(1, 0, 1, bits); },
         "Modbus Exception: 2"},
        {"ReadHoldingRegisters", 0x03, [](ModbusClient& c) { return c.ReadHoldingRegisters(1, 0, 1, words); },
         "Modbus Exception: 2"},
        {"ReadInputRegisters", 0x04, [](ModbusClient& c) { return c.ReadInputRegisters(1, 0, 1, words); },
         "Modbus Exception: 2"},
        {"WriteSingleCoil", 0x05, [](ModbusClient& c) { return c.WriteSingleCoil(1, 0, true); },
         "Modbus Exception FC05: 2"},
        {"WriteSingleRegister", 0x06, [](ModbusClient& c) { return c.WriteSingleRegister(1, 0, 1); },
         "Modbus Exception FC06: 2 Consider using FC10 instead of FC06."},
        {"WriteMultipleCoils", 0x0F, [](ModbusClient& c) { return c.WriteMultipleCoils(1, 0, {true}); },
         "Modbus Exception FC0F: 2"},
        {"WriteMultipleRegisters", 0x10, [](ModbusClient& c) { return c.WriteMultipleRegisters(1, 0, {1}); },
         "Modbus Exception FC10: 2"},
        {"ReadWriteMultipleRegisters", 0x17,
         [](ModbusClient& c) { return c.ReadWriteMultipleRegisters(1, 0, 1, 0, {1}, words); }, "Modbus Exception FC17."},
        {"ReadFifoQueue", 0x18, [](ModbusClient& c) { return c.ReadFifoQueue(1, 0, words); }, "Modbus Exception FC18."},
    };
}

TEST_F(TcpMaster, EveryOperationLogsItsFailureTextInBothLanguages) {
    for (int language : {1, 0}) {
        for (const OperationCase& op : AllOperations()) {
            SCOPED_TRACE(op.name);
            Localizer::SetLanguage(Localizer::Scope::Connection, language);
            Start([](ScriptedTcpPeer& p) {
                if (!p.Accept()) return;
                p.ReceiveTcpRequest();
                p.CloseClient();  // closes without an answer
            });
            EXPECT_FALSE(op.run(client));
            const Lines lines = log.Lines();
            ASSERT_EQ(lines.size(), 3u);
            EXPECT_EQ(lines[1], language ? "TCP recv error: 0" : "TCP recv Fehler: 0");
            EXPECT_EQ(lines[2], std::string(op.name) + (language ? " failed." : " fehlgeschlagen."));
            EXPECT_TRUE(client.IsConnected());  // a failed transaction never disconnects
            client.Disconnect();
            peer.reset();
        }
    }
}

TEST_F(TcpMaster, EveryOperationLogsItsExceptionText) {
    for (const OperationCase& op : AllOperations()) {
        SCOPED_TRACE(op.name);
        const uint8_t fc = op.functionCode;
        Start(AnswerOnce({0x00, 0x00, 0x00, 0x00, 0x00, 0x03, 0x01, static_cast<uint8_t>(fc | 0x80), 0x02}));
        EXPECT_FALSE(op.run(client));
        const Lines lines = log.Lines();
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines.back(), op.exceptionText);
        client.Disconnect();
        peer.reset();
    }
}

TEST_F(TcpMaster, Fc06ExceptionHintIsGermanInGerman) {
    Localizer::SetLanguage(Localizer::Scope::Connection, 0);
    Start(AnswerOnce({0x00, 0x00, 0x00, 0x00, 0x00, 0x03, 0x01, 0x86, 0x04}));
    EXPECT_FALSE(client.WriteSingleRegister(1, 0, 1));
    EXPECT_EQ(log.Lines().back(), "Modbus Exception FC06: 4 Gegebenenfalls versuchen Sie mit FC10 anstelle FC06 zu schreiben.");
}

TEST_F(TcpMaster, ExceptionTextsOtherThanFc06AreTheSameInGerman) {
    Localizer::SetLanguage(Localizer::Scope::Connection, 0);
    Start(AnswerOnce({0x00, 0x00, 0x00, 0x00, 0x00, 0x03, 0x01, 0x90, 0x0B}));
    EXPECT_FALSE(client.WriteMultipleRegisters(1, 0, {1}));
    EXPECT_EQ(log.Lines().back(), "Modbus Exception FC10: 11");
}

}  // namespace
