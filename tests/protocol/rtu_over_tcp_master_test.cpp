// The master's RTU-over-TCP transport over real loopback sockets against a scripted gateway: exact
// request bytes, the end of a response found from its function code (whole, split into single
// bytes, cut short), the CRC check, exception frames, the trace frame and the log lines.
#include <chrono>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "common/localizer.h"
#include "protocol/modbus_client.h"
#include "protocol/trace_log.h"
#include "support/log_capture.h"
#include "support/scripted_tcp_peer.h"

using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::string>;

namespace {

// An RTU frame with its CRC: unit id, function code, data.
Bytes Rtu(uint8_t unit, uint8_t fc, const Bytes& data) { return BuildRtuRequest(unit, fc, data); }

class RtuOverTcpMaster : public testing::Test {
protected:
    void SetUp() override {
        Localizer::SetLanguage(Localizer::Scope::Connection, 1);
        SetTraceCallback(nullptr);
        GlobalTraceLog().Clear();
    }
    void TearDown() override {
        Localizer::SetLanguage(Localizer::Scope::Connection, 0);
        GlobalTraceLog().Clear();
    }

    void Start(ScriptedTcpPeer::Script script) {
        peer = std::make_unique<ScriptedTcpPeer>(std::move(script));
        ConnectionConfig config;
        config.transport = kTransportRtuOverTcp;
        config.ipAddress = "127.0.0.1";
        config.port = peer->Port();
        ASSERT_TRUE(client.Connect(config));
        log.Clear();
    }

    // A gateway that takes one request of `requestLength` bytes and answers with `response`.
    static ScriptedTcpPeer::Script AnswerOnce(size_t requestLength, Bytes response) {
        return [requestLength, response](ScriptedTcpPeer& p) {
            if (!p.Accept()) return;
            p.Receive(requestLength);
            p.Send(response);
            p.Receive(1);
        };
    }

    ModbusClient client;
    LogCapture log{client};
    std::unique_ptr<ScriptedTcpPeer> peer;
};

TEST_F(RtuOverTcpMaster, ConnectsLikeTcpAndReadsHoldingRegisters) {
    Start(AnswerOnce(8, Rtu(1, 3, {0x04, 0x00, 0x05, 0x00, 0x06})));
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 5, 2, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{5, 6}));
    // The request is the bare RTU frame; the response comes as one RX line with its CRC.
    EXPECT_EQ(log.Lines(), (Lines{"TX: 01 03 00 05 00 02 D4 0A", "RX: 01 03 04 00 05 00 06 6A 30"}));
    client.Disconnect();
    peer->Join();
    EXPECT_EQ(peer->Received(), (Bytes{0x01, 0x03, 0x00, 0x05, 0x00, 0x02, 0xD4, 0x0A}));
}

TEST_F(RtuOverTcpMaster, OneTraceFrameWithTheRawRtuFramesAndThePeer) {
    Start(AnswerOnce(8, Rtu(1, 3, {0x02, 0x00, 0x11})));
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 0, 1, words));
    const auto frames = GlobalTraceLog().Snapshot();
    ASSERT_EQ(frames.size(), 1u);
    const Modbus::TraceFrame& f = frames.front();
    EXPECT_TRUE(f.isRtu);
    EXPECT_FALSE(f.isTimeout);
    EXPECT_FALSE(f.isCrcError);
    EXPECT_FALSE(f.isException);
    EXPECT_EQ(f.request, Rtu(1, 3, {0x00, 0x00, 0x00, 0x01}));
    EXPECT_EQ(f.response, Rtu(1, 3, {0x02, 0x00, 0x11}));
    EXPECT_EQ(Modbus::TraceAddressText(f), "127.0.0.1:" + std::to_string(peer->Port()));
    EXPECT_EQ(Modbus::TraceUnitId(f), 1);
}

TEST_F(RtuOverTcpMaster, ResponseSplitIntoSingleBytesIsJoined) {
    const Bytes response = Rtu(7, 3, {0x06, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC});
    Start([response](ScriptedTcpPeer& p) {
        if (!p.Accept()) return;
        p.Receive(8);
        for (uint8_t b : response) {
            p.Send({b});
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
        }
        p.Receive(1);
    });
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadHoldingRegisters(7, 0, 3, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{0x1234, 0x5678, 0x9ABC}));
    EXPECT_EQ(log.Lines(), (Lines{"TX: 07 03 00 00 00 03 05 AD", "RX: " + HexDump(response)}));
}

TEST_F(RtuOverTcpMaster, BadCrcFailsTheTransactionWithItsOwnLine) {
    Bytes response = Rtu(1, 3, {0x02, 0x00, 0x11});
    response.back() ^= 0xFF;
    Start(AnswerOnce(8, response));
    std::vector<uint16_t> words{99};
    EXPECT_FALSE(client.ReadHoldingRegisters(1, 0, 1, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{99}));
    EXPECT_EQ(log.Lines(), (Lines{"TX: 01 03 00 00 00 01 84 0A", "RX: " + HexDump(response), "RTU over TCP CRC error.",
                                  "ReadHoldingRegisters failed."}));
    EXPECT_EQ(client.LastTransportFailure(), TransportFailure::CrcError);
    const auto frames = GlobalTraceLog().Snapshot();
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_TRUE(frames.front().isCrcError);
    EXPECT_FALSE(frames.front().isTimeout);
    EXPECT_EQ(frames.front().response, response);
    EXPECT_EQ(GlobalTraceLog().ComputeStatistics().crcErrors, 1u);
    EXPECT_TRUE(client.IsConnected());
}

TEST_F(RtuOverTcpMaster, BadCrcLineInGerman) {
    Localizer::SetLanguage(Localizer::Scope::Connection, 0);
    Bytes response = Rtu(1, 6, {0x00, 0x01, 0x00, 0x02});
    response[3] ^= 0x01;
    Start(AnswerOnce(8, response));
    EXPECT_FALSE(client.WriteSingleRegister(1, 1, 2));
    EXPECT_EQ(log.Lines()[2], "RTU over TCP CRC Fehler.");
    EXPECT_EQ(log.Lines()[3], "WriteSingleRegister fehlgeschlagen.");
}

TEST_F(RtuOverTcpMaster, ExceptionFrameOfFiveBytes) {
    Start(AnswerOnce(8, Rtu(1, 0x83, {0x02})));
    std::vector<uint16_t> words;
    EXPECT_FALSE(client.ReadHoldingRegisters(1, 5000, 2, words));
    EXPECT_EQ(log.Lines(), (Lines{"TX: 01 03 13 88 00 02 40 A5", "RX: 01 83 02 C0 F1", "Modbus Exception: 2"}));
    EXPECT_EQ(client.LastExceptionCode(), 2);
    EXPECT_EQ(client.LastTransportFailure(), TransportFailure::None);
    const auto frames = GlobalTraceLog().Snapshot();
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_TRUE(frames.front().isException);
}

TEST_F(RtuOverTcpMaster, ResponseStoppingMidFrameTimesOutAndTheConnectionIsKept) {
    const Bytes late = Rtu(1, 3, {0x04, 0x00, 0x05, 0x00, 0x06});
    const Bytes good = Rtu(1, 3, {0x02, 0xAB, 0xCD});
    Start([late, good](ScriptedTcpPeer& p) {
        if (!p.Accept()) return;
        p.Receive(8);
        p.Send(Bytes(late.begin(), late.begin() + 3));
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        p.Send(Bytes(late.begin() + 3, late.end()));  // the rest, after the master gave up
        p.Receive(8);
        p.Send(good);
        p.Receive(1);
    });
    client.SetResponseTimeout(150);
    std::vector<uint16_t> words;
    EXPECT_FALSE(client.ReadHoldingRegisters(1, 5, 2, words));
    const Lines lines = log.Lines();
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0], "TX: 01 03 00 05 00 02 D4 0A");
    EXPECT_EQ(lines[1].rfind("TCP recv error: ", 0), 0u) << lines[1];
    EXPECT_EQ(lines[2], "RTU over TCP: incomplete response, 3 bytes received.");
    EXPECT_EQ(lines[3], "RX: 01 03 04");
    EXPECT_EQ(lines[4], "ReadHoldingRegisters failed.");
    EXPECT_EQ(client.LastTransportFailure(), TransportFailure::Timeout);
    EXPECT_TRUE(client.IsConnected());
    ASSERT_TRUE(GlobalTraceLog().Snapshot().front().isTimeout);

    // The late rest of the first response is dropped, not read as the second one.
    std::this_thread::sleep_for(std::chrono::milliseconds(350));
    log.Clear();
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 0, 1, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{0xABCD}));
    EXPECT_EQ(log.Lines(), (Lines{"TX: 01 03 00 00 00 01 84 0A", "RX: " + HexDump(good)}));
}

TEST_F(RtuOverTcpMaster, SilentGatewayTimesOutWithNoRxLine) {
    Start([](ScriptedTcpPeer& p) {
        if (!p.Accept()) return;
        p.Receive(8);
        p.Receive(1);
    });
    client.SetResponseTimeout(100);
    std::vector<uint16_t> words;
    EXPECT_FALSE(client.ReadInputRegisters(1, 0, 1, words));
    const Lines lines = log.Lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1].rfind("TCP recv error: ", 0), 0u);
    EXPECT_EQ(lines[2], "ReadInputRegisters failed.");
    EXPECT_EQ(client.LastTransportFailure(), TransportFailure::Timeout);
}

TEST_F(RtuOverTcpMaster, GatewayClosingIsAConnectionLoss) {
    Start([](ScriptedTcpPeer& p) {
        if (!p.Accept()) return;
        p.Receive(8);
        p.CloseClient();
    });
    std::vector<bool> bits;
    EXPECT_FALSE(client.ReadCoils(1, 0, 1, bits));
    EXPECT_EQ(client.LastTransportFailure(), TransportFailure::ConnectionLost);
    EXPECT_EQ(log.Lines().back(), "ReadCoils failed.");
}

TEST_F(RtuOverTcpMaster, EveryFunctionCodeFramesItsRequestAndFindsTheEndOfItsResponse) {
    // One exchange after another on one stream: the master must stop exactly at the end each
    // function code gives, or the next exchange would be out of step.
    const std::vector<std::pair<Bytes, Bytes>> exchanges = {
        {Rtu(1, 0x01, {0x00, 0x0A, 0x00, 0x03}), Rtu(1, 0x01, {0x01, 0x05})},
        {Rtu(1, 0x02, {0x00, 0x00, 0x00, 0x09}), Rtu(1, 0x02, {0x02, 0xFF, 0x01})},
        {Rtu(1, 0x04, {0x00, 0x01, 0x00, 0x01}), Rtu(1, 0x04, {0x02, 0x07, 0xD1})},
        {Rtu(1, 0x05, {0x00, 0x0A, 0xFF, 0x00}), Rtu(1, 0x05, {0x00, 0x0A, 0xFF, 0x00})},
        {Rtu(1, 0x06, {0x00, 0x0B, 0x12, 0x34}), Rtu(1, 0x06, {0x00, 0x0B, 0x12, 0x34})},
        {Rtu(1, 0x0F, {0x00, 0x14, 0x00, 0x0A, 0x02, 0x0B, 0x03}), Rtu(1, 0x0F, {0x00, 0x14, 0x00, 0x0A})},
        {Rtu(1, 0x10, {0x00, 0xC8, 0x00, 0x02, 0x04, 0x00, 0x01, 0x00, 0x02}), Rtu(1, 0x10, {0x00, 0xC8, 0x00, 0x02})},
        {Rtu(1, 0x17, {0x01, 0x2C, 0x00, 0x02, 0x01, 0x2C, 0x00, 0x01, 0x02, 0x00, 0x07}),
         Rtu(1, 0x17, {0x04, 0x00, 0x07, 0x05, 0x16})},
        {Rtu(1, 0x18, {0x00, 0x00}), Rtu(1, 0x18, {0x00, 0x06, 0x00, 0x02, 0x00, 0x2A, 0x00, 0x2B})},
    };
    Start([exchanges](ScriptedTcpPeer& p) {
        if (!p.Accept()) return;
        for (const auto& [request, response] : exchanges) {
            if (p.Receive(request.size()) != request) return;
            p.Send(response);
        }
        p.Receive(1);
    });
    std::vector<bool> bits;
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadCoils(1, 10, 3, bits));
    EXPECT_EQ(bits, (std::vector<bool>{true, false, true}));
    ASSERT_TRUE(client.ReadDiscreteInputs(1, 0, 9, bits));
    EXPECT_EQ(bits, (std::vector<bool>{true, true, true, true, true, true, true, true, true}));
    ASSERT_TRUE(client.ReadInputRegisters(1, 1, 1, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{2001}));
    ASSERT_TRUE(client.WriteSingleCoil(1, 10, true));
    ASSERT_TRUE(client.WriteSingleRegister(1, 11, 0x1234));
    ASSERT_TRUE(client.WriteMultipleCoils(1, 20, {true, true, false, true, false, false, false, false, true, true}));
    ASSERT_TRUE(client.WriteMultipleRegisters(1, 200, {1, 2}));
    ASSERT_TRUE(client.ReadWriteMultipleRegisters(1, 300, 2, 300, {7}, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{7, 1302}));
    ASSERT_TRUE(client.ReadFifoQueue(1, 0, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{42, 43}));
    EXPECT_EQ(GlobalTraceLog().Size(), 9u);
    EXPECT_EQ(GlobalTraceLog().ComputeStatistics().ok, 9u);
}

TEST_F(RtuOverTcpMaster, UnknownFunctionCodeInTheResponseFails) {
    Start(AnswerOnce(8, Rtu(1, 0x2B, {0x0E, 0x01})));
    std::vector<uint16_t> words;
    EXPECT_FALSE(client.ReadHoldingRegisters(1, 0, 1, words));
    const Lines lines = log.Lines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[1], "RTU over TCP: response with unknown function code 0x2B.");
    EXPECT_EQ(lines[2], "RX: 01 2B");
    EXPECT_EQ(lines[3], "ReadHoldingRegisters failed.");
}

TEST_F(RtuOverTcpMaster, TcpConnectionsStillFrameMbap) {
    // Transport 0 is untouched by the third kind: MBAP framing, transaction id 0 first.
    ScriptedTcpPeer p([](ScriptedTcpPeer& s) {
        if (!s.Accept()) return;
        s.ReceiveTcpRequest();
        s.Send({0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x01, 0x03, 0x02, 0x00, 0x2A});
        s.Receive(1);
    });
    ConnectionConfig config;
    config.port = p.Port();
    ASSERT_TRUE(client.Connect(config));
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 0, 1, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{42}));
    EXPECT_FALSE(GlobalTraceLog().Snapshot().front().isRtu);
}

}  // namespace
