// The trace log shared by a producing thread and the window's thread. Meant to run under
// ThreadSanitizer (preset linux-tsan) as well as normally: every loop is bounded in count and time.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "platform/clock.h"
#include "protocol/modbus_client.h"
#include "protocol/trace_log.h"
#include "support/scripted_tcp_peer.h"

using Bytes = std::vector<uint8_t>;
using Modbus::TraceFrame;

namespace {

int64_t NowMs() { return platform::MonotonicMicroseconds() / 1000; }

// What the Diagnostics page does on a refresh, a clear and an export, checking what it sees.
void ActLikeTheWindow(TraceLog& log, size_t capacity, std::atomic<bool>& failed) {
    const std::deque<TraceFrame> copy = log.Snapshot();
    if (copy.size() > capacity) failed.store(true);
    for (size_t i = 1; i < copy.size(); ++i) {
        // Frames stay in the order they were appended.
        if (static_cast<uint16_t>(copy[i - 1].sequence + 1) != copy[i].sequence) failed.store(true);
    }
    const Modbus::CommStatistics s = log.ComputeStatistics();
    if (s.ok + s.timeouts + s.crcErrors != s.total || s.total > capacity) failed.store(true);
    const std::vector<uint8_t> pcap = log.BuildPcap("10.0.0.1", 502);
    if (pcap.size() < 24) failed.store(true);
}

}  // namespace

TEST(TraceConcurrency, ProducerAndWindowThreadShareTheLog) {
    TraceLog log(500);
    std::atomic<bool> producing{true};
    std::atomic<bool> failed{false};
    std::atomic<int> callbacks{0};
    constexpr int kFrames = 20000;

    std::thread producer([&] {
        const int64_t deadline = NowMs() + 20000;
        for (int i = 0; i < kFrames && NowMs() < deadline; ++i) {
            TraceFrame f;
            f.sequence = static_cast<uint16_t>(i);
            f.timestamp = 1700000000000 + i;
            f.latencyMs = i % 7;
            f.isTimeout = i % 11 == 0;
            f.isException = i % 5 == 0;
            f.request = {0x00, 0x01, 0x00, 0x00, 0x00, 0x06, 0x01, 0x03, 0x00, 0x00, 0x00, 0x0A};
            if (!f.isTimeout) f.response = {0x00, 0x01, 0x00, 0x00, 0x00, 0x05, 0x01, 0x03, 0x02, 0x00, 0x01};
            log.Record(std::move(f));
        }
        producing.store(false);
    });

    std::thread window([&] {
        const int64_t deadline = NowMs() + 25000;
        for (int round = 0; round < 100000 && producing.load() && NowMs() < deadline; ++round) {
            ActLikeTheWindow(log, 500, failed);
            if (round % 50 == 0) log.Clear();
            // The main window installs its callback while frames may already be flowing.
            if (round % 20 == 0) log.SetCallback([&](const TraceFrame&) { ++callbacks; });
            if (round % 20 == 10) log.SetCallback(nullptr);
        }
    });

    producer.join();
    window.join();
    EXPECT_FALSE(failed.load());
    EXPECT_LE(log.Size(), 500u);
    EXPECT_LE(callbacks.load(), kFrames);
}

TEST(TraceConcurrency, PollThreadTransactionsWhileTheWindowRefreshes) {
    SetTraceCallback(nullptr);
    GlobalTraceLog().Clear();
    constexpr int kTransactions = 200;
    ScriptedTcpPeer peer([](ScriptedTcpPeer& p) {
        if (!p.Accept()) return;
        for (int i = 0; i < kTransactions; ++i) {
            const Bytes request = p.ReceiveTcpRequest();
            if (request.size() < 12) return;
            p.Send({request[0], request[1], 0x00, 0x00, 0x00, 0x05, 0x01, 0x03, 0x02, 0x00, static_cast<uint8_t>(i)});
        }
    });
    ModbusClient client;
    ConnectionConfig config;
    config.ipAddress = "127.0.0.1";
    config.port = peer.Port();
    ASSERT_TRUE(client.Connect(config));

    std::atomic<int> posted{0};
    SetTraceCallback([&](const TraceFrame&) { ++posted; });
    std::atomic<bool> polling{true};
    std::atomic<int> good{0};
    std::thread poll([&] {
        std::vector<uint16_t> words;
        for (int i = 0; i < kTransactions; ++i) {
            if (client.ReadHoldingRegisters(1, 0, 1, words)) ++good;
        }
        polling.store(false);
    });
    std::atomic<bool> failed{false};
    std::thread window([&] {
        const int64_t deadline = NowMs() + 30000;
        for (int round = 0; round < 1000000 && polling.load() && NowMs() < deadline; ++round) {
            ActLikeTheWindow(GlobalTraceLog(), TraceLog::kDefaultCapacity, failed);
        }
    });
    poll.join();
    window.join();
    SetTraceCallback(nullptr);

    EXPECT_EQ(good.load(), kTransactions);
    EXPECT_EQ(posted.load(), kTransactions);
    EXPECT_FALSE(failed.load());
    const Modbus::CommStatistics s = GlobalTraceLog().ComputeStatistics();
    EXPECT_EQ(s.total, static_cast<uint32_t>(kTransactions));
    EXPECT_EQ(s.ok, static_cast<uint32_t>(kTransactions));
    GlobalTraceLog().Clear();
}
