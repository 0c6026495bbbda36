// One trace frame per master transaction, produced by the connection: over a scripted loopback TCP
// peer and over a serial pair (a pty natively, a socat-backed COM pair under Wine).
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "platform/clock.h"
#include "protocol/modbus_client.h"
#include "protocol/trace_log.h"
#include "support/scripted_tcp_peer.h"
#include "support/serial_pair.h"

using Bytes = std::vector<uint8_t>;
using Modbus::TraceFrame;

namespace {

// Clears the process-wide log and callback around each test.
class TraceProduction : public testing::Test {
protected:
    void SetUp() override {
        SetTraceCallback(nullptr);
        GlobalTraceLog().Clear();
    }
    void TearDown() override {
        SetTraceCallback(nullptr);
        GlobalTraceLog().Clear();
    }

    static bool ConnectTcp(ModbusClient& client, uint16_t port) {
        ConnectionConfig config;
        config.ipAddress = "127.0.0.1";
        config.port = port;
        return client.Connect(config);
    }

    static std::deque<TraceFrame> Frames() { return GlobalTraceLog().Snapshot(); }
};

Bytes WithCrc(Bytes frame) {
    const uint16_t crc = Crc16(frame.data(), frame.size());
    frame.push_back(static_cast<uint8_t>(crc & 0xFF));
    frame.push_back(static_cast<uint8_t>(crc >> 8));
    return frame;
}

}  // namespace

TEST_F(TraceProduction, TcpReadGivesOneFrameWithBothAdusPeerAndTimes) {
    const Bytes response{0x00, 0x00, 0x00, 0x00, 0x00, 0x07, 0x05, 0x03, 0x04, 0x00, 0x2A, 0xBE, 0xEF};
    ScriptedTcpPeer peer([&](ScriptedTcpPeer& p) {
        if (!p.Accept()) return;
        p.ReceiveTcpRequest();
        platform::SleepMilliseconds(40);
        p.Send(response);
    });
    ModbusClient client;
    ASSERT_TRUE(ConnectTcp(client, peer.Port()));
    const int64_t before = platform::UnixTimeMilliseconds();
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadHoldingRegisters(5, 0x0010, 2, words));
    const int64_t after = platform::UnixTimeMilliseconds();
    EXPECT_EQ(words, (std::vector<uint16_t>{0x002A, 0xBEEF}));

    const auto frames = Frames();
    ASSERT_EQ(frames.size(), 1u);
    const TraceFrame& f = frames[0];
    EXPECT_EQ(f.request, (Bytes{0x00, 0x00, 0x00, 0x00, 0x00, 0x06, 0x05, 0x03, 0x00, 0x10, 0x00, 0x02}));
    EXPECT_EQ(f.response, response);
    EXPECT_GE(f.timestamp, before);
    EXPECT_LE(f.timestamp, after);
    EXPECT_GE(f.latencyMs, 40);
    EXPECT_LT(f.latencyMs, 3000);
    EXPECT_FALSE(f.isTimeout);
    EXPECT_FALSE(f.isException);
    EXPECT_FALSE(f.isCrcError);
    EXPECT_FALSE(f.isRtu);
    EXPECT_EQ(f.peerAddress, 0x7F000001u);
    EXPECT_EQ(f.peerPort, peer.Port());
    EXPECT_EQ(f.text, "127.0.0.1:" + std::to_string(peer.Port()));
    EXPECT_EQ(Modbus::TraceUnitId(f), 5);
    EXPECT_EQ(Modbus::TraceAddressText(f), f.text);
    EXPECT_STREQ(FunctionCodeName(f.request[7]), "FC03 Read Holding Registers");
}

TEST_F(TraceProduction, EveryOperationGivesOneFrameWithRunningSequence) {
    ScriptedTcpPeer peer([](ScriptedTcpPeer& p) {
        if (!p.Accept()) return;
        for (int i = 0; i < 3; ++i) {
            Bytes request = p.ReceiveTcpRequest();
            if (request.size() < 12) return;
            // Echo the write: MBAP with length 6, unit, fc, address, value.
            request[5] = 6;
            request.resize(12);
            p.Send(request);
        }
    });
    ModbusClient client;
    ASSERT_TRUE(ConnectTcp(client, peer.Port()));
    EXPECT_TRUE(client.WriteSingleRegister(1, 1, 100));
    EXPECT_TRUE(client.WriteSingleCoil(1, 2, true));
    EXPECT_TRUE(client.WriteSingleRegister(1, 3, 300));
    const auto frames = Frames();
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(static_cast<uint16_t>(frames[0].sequence + 1), frames[1].sequence);
    EXPECT_EQ(static_cast<uint16_t>(frames[1].sequence + 1), frames[2].sequence);
    EXPECT_EQ(frames[1].request[7], 0x05);
    EXPECT_EQ(frames[2].request[1], 0x02);  // transaction id 2 on the wire
    for (const TraceFrame& f : frames) EXPECT_FALSE(f.isTimeout);
}

TEST_F(TraceProduction, ExceptionResponseIsMarkedAndTheCallbackSeesTheFrameInTheLog) {
    ScriptedTcpPeer peer([](ScriptedTcpPeer& p) {
        if (!p.Accept()) return;
        p.ReceiveTcpRequest();
        p.Send({0x00, 0x00, 0x00, 0x00, 0x00, 0x03, 0x01, 0x86, 0x02});
    });
    std::mutex mutex;
    std::vector<TraceFrame> seen;
    size_t logSizeInCallback = 0;
    SetTraceCallback([&](const TraceFrame& f) {
        std::lock_guard<std::mutex> lock(mutex);
        seen.push_back(f);
        logSizeInCallback = GlobalTraceLog().Size();
    });
    ModbusClient client;
    ASSERT_TRUE(ConnectTcp(client, peer.Port()));
    EXPECT_FALSE(client.WriteSingleRegister(1, 4, 7));
    std::lock_guard<std::mutex> lock(mutex);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(logSizeInCallback, 1u);
    EXPECT_TRUE(seen[0].isException);
    EXPECT_FALSE(seen[0].isTimeout);
    EXPECT_EQ(seen[0].response, (Bytes{0x00, 0x00, 0x00, 0x00, 0x00, 0x03, 0x01, 0x86, 0x02}));
    EXPECT_EQ(GlobalTraceLog().ComputeStatistics().exceptions, 1u);
    EXPECT_EQ(GlobalTraceLog().ComputeStatistics().ok, 1u);
}

TEST_F(TraceProduction, ShortExceptionToAReadIsNotMarkedJustAsTheOperationDoesNotSeeIt) {
    // Eight bytes hold the function code but not the read path's minimum of nine.
    ScriptedTcpPeer peer([](ScriptedTcpPeer& p) {
        if (!p.Accept()) return;
        p.ReceiveTcpRequest();
        p.Send({0x00, 0x00, 0x00, 0x00, 0x00, 0x02, 0x01, 0x83});
    });
    ModbusClient client;
    ASSERT_TRUE(ConnectTcp(client, peer.Port()));
    std::vector<uint16_t> words;
    EXPECT_FALSE(client.ReadHoldingRegisters(1, 0, 1, words));
    const auto frames = Frames();
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_FALSE(frames[0].isException);
    EXPECT_FALSE(frames[0].isTimeout);
}

TEST_F(TraceProduction, PeerClosingWithoutAnswerIsATimeoutWithNoResponse) {
    ScriptedTcpPeer peer([](ScriptedTcpPeer& p) {
        if (!p.Accept()) return;
        p.ReceiveTcpRequest();
        p.CloseClient();
    });
    ModbusClient client;
    ASSERT_TRUE(ConnectTcp(client, peer.Port()));
    std::vector<uint16_t> words;
    EXPECT_FALSE(client.ReadInputRegisters(1, 0, 1, words));
    const auto frames = Frames();
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_TRUE(frames[0].isTimeout);
    EXPECT_TRUE(frames[0].response.empty());
    EXPECT_EQ(frames[0].request.size(), 12u);
    EXPECT_EQ(GlobalTraceLog().ComputeStatistics().timeouts, 1u);
    // One record only in the capture.
    EXPECT_EQ(GlobalTraceLog().BuildPcap("127.0.0.1", peer.Port()).size(), 24u + 16u + 54u + 12u);
}

TEST_F(TraceProduction, SilentPeerIsATimeoutAfterTheReceiveTimeOut) {
    std::atomic<bool> done{false};
    ScriptedTcpPeer peer([&](ScriptedTcpPeer& p) {
        if (!p.Accept()) return;
        p.ReceiveTcpRequest();
        for (int i = 0; i < 100 && !done.load(); ++i) platform::SleepMilliseconds(50);
    });
    ModbusClient client;
    ASSERT_TRUE(ConnectTcp(client, peer.Port()));
    std::vector<bool> bits;
    EXPECT_FALSE(client.ReadCoils(1, 0, 8, bits));
    done.store(true);
    peer.Join();  // the script has ended before its socket is closed
    const auto frames = Frames();
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_TRUE(frames[0].isTimeout);
    EXPECT_GE(frames[0].latencyMs, 2900);
    EXPECT_LT(frames[0].latencyMs, 10000);
}

TEST_F(TraceProduction, RepairedRegisterResponseIsTracedAsRepaired) {
    // The MBAP length says 5 but the byte count 4 needs a body of 7.
    ScriptedTcpPeer peer([](ScriptedTcpPeer& p) {
        if (!p.Accept()) return;
        p.ReceiveTcpRequest();
        p.Send({0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x01, 0x03, 0x04, 0x00, 0x01, 0x00, 0x02});
    });
    ModbusClient client;
    ASSERT_TRUE(ConnectTcp(client, peer.Port()));
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 0, 2, words));
    const auto frames = Frames();
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].response,
              (Bytes{0x00, 0x00, 0x00, 0x00, 0x00, 0x07, 0x01, 0x03, 0x04, 0x00, 0x01, 0x00, 0x02}));
}

TEST_F(TraceProduction, NoFrameWhenTheOperationDoesNotRun) {
    ModbusClient client;
    std::vector<uint16_t> words;
    EXPECT_FALSE(client.ReadHoldingRegisters(1, 0, 1, words));
    EXPECT_EQ(GlobalTraceLog().Size(), 0u);
}

TEST_F(TraceProduction, LogStaysAtItsCapacityUnderManyTransactions) {
    GlobalTraceLog().SetCapacity(5);
    ScriptedTcpPeer peer([](ScriptedTcpPeer& p) {
        if (!p.Accept()) return;
        for (int i = 0; i < 8; ++i) {
            Bytes request = p.ReceiveTcpRequest();
            if (request.size() < 12) return;
            p.Send({request[0], request[1], 0x00, 0x00, 0x00, 0x05, 0x01, 0x03, 0x02, 0x00, static_cast<uint8_t>(i)});
        }
    });
    ModbusClient client;
    ASSERT_TRUE(ConnectTcp(client, peer.Port()));
    std::vector<uint16_t> words;
    for (int i = 0; i < 8; ++i) ASSERT_TRUE(client.ReadHoldingRegisters(1, 0, 1, words));
    const auto frames = Frames();
    GlobalTraceLog().SetCapacity(TraceLog::kDefaultCapacity);
    ASSERT_EQ(frames.size(), 5u);
    EXPECT_EQ(frames.front().response.back(), 3);
    EXPECT_EQ(frames.back().response.back(), 7);
}

// --- RTU ---

namespace {

ConnectionConfig RtuConfig(const SerialPair& pair) {
    ConnectionConfig config;
    config.transport = 1;
    config.serialPort = pair.DeviceName();
    config.baudRate = 19200;
    return config;
}

}  // namespace

TEST_F(TraceProduction, RtuResponseWithGoodCrcIsOk) {
    SerialPair pair;
    ASSERT_TRUE(pair.Ok());
    ModbusClient client;
    ASSERT_TRUE(client.Connect(RtuConfig(pair)));
    std::thread device([&] {
        const Bytes request = pair.ReadFrame(3000);
        if (request.size() == 8) pair.Write(WithCrc({0x01, 0x03, 0x02, 0x12, 0x34}));
    });
    std::vector<uint16_t> words;
    const bool ok = client.ReadHoldingRegisters(1, 0, 1, words);
    device.join();
    ASSERT_TRUE(ok);
    EXPECT_EQ(words, (std::vector<uint16_t>{0x1234}));
    const auto frames = Frames();
    ASSERT_EQ(frames.size(), 1u);
    const TraceFrame& f = frames[0];
    EXPECT_TRUE(f.isRtu);
    EXPECT_FALSE(f.isCrcError);
    EXPECT_FALSE(f.isTimeout);
    EXPECT_EQ(f.request, (Bytes{0x01, 0x03, 0x00, 0x00, 0x00, 0x01, 0x84, 0x0A}));
    EXPECT_EQ(f.response, WithCrc({0x01, 0x03, 0x02, 0x12, 0x34}));
    EXPECT_EQ(f.text, pair.DeviceName());
    EXPECT_EQ(f.peerPort, 0);
    EXPECT_EQ(f.peerAddress, 0u);
    EXPECT_EQ(Modbus::TraceUnitId(f), 1);
    EXPECT_EQ(Modbus::TraceAddressText(f), pair.DeviceName());
    EXPECT_GE(f.latencyMs, 50);  // the master waits 50 ms before it reads
}

TEST_F(TraceProduction, RtuResponseWithWrongCrcIsMarkedButStillParsed) {
    SerialPair pair;
    ASSERT_TRUE(pair.Ok());
    ModbusClient client;
    ASSERT_TRUE(client.Connect(RtuConfig(pair)));
    std::thread device([&] {
        const Bytes request = pair.ReadFrame(3000);
        if (request.size() == 8) pair.Write({0x01, 0x03, 0x02, 0x12, 0x34, 0x00, 0x00});
    });
    std::vector<uint16_t> words;
    const bool ok = client.ReadHoldingRegisters(1, 0, 1, words);
    device.join();
    EXPECT_TRUE(ok);
    EXPECT_EQ(words, (std::vector<uint16_t>{0x1234}));
    const auto frames = Frames();
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_TRUE(frames[0].isCrcError);
    EXPECT_FALSE(frames[0].isTimeout);
    const Modbus::CommStatistics s = GlobalTraceLog().ComputeStatistics();
    EXPECT_EQ(s.crcErrors, 1u);
    EXPECT_EQ(s.ok, 0u);
}

TEST_F(TraceProduction, RtuExceptionIsMarked) {
    SerialPair pair;
    ASSERT_TRUE(pair.Ok());
    ModbusClient client;
    ASSERT_TRUE(client.Connect(RtuConfig(pair)));
    std::thread device([&] {
        const Bytes request = pair.ReadFrame(3000);
        if (request.size() == 8) pair.Write(WithCrc({0x01, 0x85, 0x03}));
    });
    const bool ok = client.WriteSingleCoil(1, 10, true);
    device.join();
    EXPECT_FALSE(ok);
    const auto frames = Frames();
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_TRUE(frames[0].isException);
    EXPECT_FALSE(frames[0].isCrcError);
    EXPECT_EQ(Bytes(frames[0].request.begin(), frames[0].request.begin() + 6),
              (Bytes{0x01, 0x05, 0x00, 0x0A, 0xFF, 0x00}));
}

TEST_F(TraceProduction, SilentRtuDeviceIsATimeout) {
    SerialPair pair;
    ASSERT_TRUE(pair.Ok());
    ModbusClient client;
    ASSERT_TRUE(client.Connect(RtuConfig(pair)));
    std::vector<uint16_t> words;
    EXPECT_FALSE(client.ReadHoldingRegisters(1, 0, 1, words));
    const auto frames = Frames();
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_TRUE(frames[0].isTimeout);
    EXPECT_TRUE(frames[0].response.empty());
    EXPECT_FALSE(frames[0].isCrcError);
    EXPECT_GE(frames[0].latencyMs, 1000);
}
