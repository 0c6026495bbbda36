// The polling engine's own cost: a structure of 1,000 UINT16 details polled through the engine as
// the Structures page runs it (one FC03 read of one register per detail, decoding, display text,
// alarm limits, recording on, the results handed off as a heap copy), against the same number of
// bare FC03 reads of one register on the same connection. Both are traced and logged alike.
//
// Usage: kestrel_bench_polling HOST PORT ROUNDS
// Prints "engine_us_per_detail M MIN MAX" and "bare_us_per_read M MIN MAX" (medians of ROUNDS
// alternated rounds, each one full cycle of 1,000 details), and the same as CPU time of this thread
// ("engine_cpu_us_per_detail", "bare_cpu_us_per_read"): wall time also holds the waits for the
// server and the switches between the two processes, which vary from round to round on a shared
// machine; the thread's CPU time is what the engine itself spends.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "bench_support.h"
#include "model/alarm_engine.h"
#include "model/structure_store.h"
#include "platform/clock.h"
#include "polling/polling_engine.h"
#include "polling/recording_buffer.h"
#include "polling/structure_polling.h"
#include "protocol/trace_log.h"

namespace {

constexpr int kDetails = 1000;

ModbusStructure BenchStructure(const std::string& host, uint16_t port) {
    ModbusStructure s;
    s.name = "Bench device";
    s.ip = host;
    s.port = port;
    for (int i = 0; i < kDetails; ++i) {
        Modbus::ModbusDetail d;
        d.name = "Register " + std::to_string(i);
        d.unit.assign(1, 'V');  // not = "V": GCC 12 warns falsely (-Wrestrict) about that in Release
        d.dataType = Modbus::DataType::UInt16;
        d.registerAddress = static_cast<uint16_t>(i);
        d.functionCode = 3;
        // Limits that are evaluated on every value; only the high warning fires, once, for the
        // registers above 900 (register i holds i).
        d.warnLow = -1.0;
        d.warnHigh = 900.0;
        d.alarmLow = -2.0;
        d.alarmHigh = 5000.0;
        s.details.push_back(d);
    }
    return s;
}

struct Spread {
    double median, min, max;
};

// CPU time this thread has used, in microseconds.
double ThreadCpuMicros() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) * 1e6 + static_cast<double>(t.tv_nsec) / 1e3;
}

Spread SpreadOf(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    const double median = n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
    return {median, values.front(), values.back()};
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s HOST PORT ROUNDS\n", argv[0]);
        return 2;
    }
    const std::string host = argv[1];
    const uint16_t port = static_cast<uint16_t>(std::atoi(argv[2]));
    const int rounds = std::max(1, std::atoi(argv[3]));

    bench::KeptLines lines;  // outlives the connection, whose destructor still logs
    long traced = 0;
    SetTraceCallback([&traced](const Modbus::TraceFrame&) { ++traced; });
    StructureStore store("/nonexistent/kestrel-bench-structures.json");
    const int32_t structureId = store.AddStructure(BenchStructure(host, port));
    ModbusClient connection;
    PollingEngine engine;
    AlarmEngine alarms;
    long alarmEvents = 0;
    alarms.SetAlarmCallback([&alarmEvents](const Modbus::AlarmEvent&) { ++alarmEvents; });
    RecordingBuffer recording;
    recording.ToggleRecording("bench");
    const StructurePolling polling{store, connection, engine, alarms, recording};

    // What StartStructurePolling sets up, without starting the thread: each round runs one cycle
    // on this thread exactly as the poll thread does (PollOnce, then the results handler).
    std::unique_ptr<std::vector<Modbus::PollingResult>> posted;
    const auto handOff = [&posted](const std::vector<Modbus::PollingResult>& results) {
        posted = std::make_unique<std::vector<Modbus::PollingResult>>(results);  // the window's heap copy
    };
    if (StartStructurePolling(polling, structureId, 100000, lines.Callback(), handOff) != StructurePollStart::Started) {
        std::fprintf(stderr, "connect failed\n");
        return 1;
    }
    engine.Stop();  // the thread was started by the call above; the rounds below run the cycle here
    if (!connection.IsConnected()) {
        std::fprintf(stderr, "connection lost\n");
        return 1;
    }
    const PollingEngine::OnResults handler = MakeStructureResultsHandler(polling, structureId, handOff);
    // The read StartStructurePolling bound, with a stopwatch around it: splits a cycle's time into
    // the reads themselves and the engine's own work around them.
    int64_t readMicros = 0;
    engine.SetReadDetail([&connection, &readMicros](const Modbus::ModbusDetail& detail, std::vector<uint16_t>& out) {
        const int64_t t = platform::MonotonicMicroseconds();
        const bool ok = ReadDetailRegisters(connection, 1, detail, out);
        readMicros += platform::MonotonicMicroseconds() - t;
        return ok;
    });

    std::vector<double> engineTimes, bareTimes, handlerTimes, readTimes, engineCpu, bareCpu;
    std::vector<uint16_t> words;
    for (int round = 0; round < rounds; ++round) {
        readMicros = 0;
        double cpu0 = ThreadCpuMicros();
        int64_t t0 = platform::MonotonicMicroseconds();
        const std::vector<Modbus::PollingResult> results = engine.PollOnce();
        readTimes.push_back(static_cast<double>(readMicros) / kDetails);
        const int64_t tPoll = platform::MonotonicMicroseconds();
        handler(results);
        engineTimes.push_back(static_cast<double>(platform::MonotonicMicroseconds() - t0) / kDetails);
        engineCpu.push_back((ThreadCpuMicros() - cpu0) / kDetails);
        handlerTimes.push_back(static_cast<double>(platform::MonotonicMicroseconds() - tPoll) / kDetails);
        if (!posted || posted->size() != kDetails) {
            std::fprintf(stderr, "a cycle was not handed on whole\n");
            return 1;
        }
        for (const auto& r : *posted) {
            if (!r.ok || r.displayText != std::to_string(r.detailId - posted->front().detailId) + " V") {
                std::fprintf(stderr, "poll failed: %s\n", r.displayText.c_str());
                return 1;
            }
        }

        cpu0 = ThreadCpuMicros();
        t0 = platform::MonotonicMicroseconds();
        for (int i = 0; i < kDetails; ++i) {
            if (!connection.ReadHoldingRegisters(1, static_cast<uint16_t>(i), 1, words) || words.size() != 1) {
                std::fprintf(stderr, "bare read failed\n");
                return 1;
            }
        }
        bareTimes.push_back(static_cast<double>(platform::MonotonicMicroseconds() - t0) / kDetails);
        bareCpu.push_back((ThreadCpuMicros() - cpu0) / kDetails);
    }
    StopStructurePolling(polling);
    SetTraceCallback(nullptr);
    const Spread e = SpreadOf(engineTimes), b = SpreadOf(bareTimes);
    std::printf("engine_us_per_detail %.2f %.2f %.2f\n", e.median, e.min, e.max);
    std::printf("bare_us_per_read %.2f %.2f %.2f\n", b.median, b.min, b.max);
    const Spread h = SpreadOf(handlerTimes);
    std::printf("handler_us_per_detail %.2f %.2f %.2f\n", h.median, h.min, h.max);
    const Spread rd = SpreadOf(readTimes);
    std::printf("engine_read_us_per_detail %.2f %.2f %.2f\n", rd.median, rd.min, rd.max);
    const Spread ec = SpreadOf(engineCpu), bc = SpreadOf(bareCpu);
    std::printf("engine_cpu_us_per_detail %.2f %.2f %.2f\n", ec.median, ec.min, ec.max);
    std::printf("bare_cpu_us_per_read %.2f %.2f %.2f\n", bc.median, bc.min, bc.max);
    std::printf("recorded_entries %zu\n", recording.Entries().size());
    std::printf("alarm_events %ld\n", alarmEvents);
    return 0;
}
