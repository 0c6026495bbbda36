// CRC-16, frame building and trace-log throughput (Google Benchmark).
//
// The CRC is computed bit by bit on purpose; BM_Crc16TableReference is a conventional 256-entry
// table CRC written here only as the yardstick for that choice (both give the same value, which
// the benchmark checks).
#include <benchmark/benchmark.h>

#include <array>
#include <cstdlib>

#include "protocol/modbus_client.h"
#include "protocol/trace_log.h"

using Modbus::Bytes;

namespace {

Bytes Payload(size_t n) {
    Bytes bytes(n);
    for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<uint8_t>(i * 31 + 7);
    return bytes;
}

const std::array<uint16_t, 256>& CrcTable() {
    static const std::array<uint16_t, 256> table = [] {
        std::array<uint16_t, 256> t{};
        for (unsigned i = 0; i < 256; ++i) {
            uint16_t crc = static_cast<uint16_t>(i);
            for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? static_cast<uint16_t>((crc >> 1) ^ 0xA001) : crc >> 1;
            t[i] = crc;
        }
        return t;
    }();
    return table;
}

uint16_t TableCrc16(const uint8_t* bytes, size_t length) {
    const auto& table = CrcTable();
    uint16_t crc = 0xFFFF;
    for (size_t i = 0; i < length; ++i) crc = static_cast<uint16_t>((crc >> 8) ^ table[(crc ^ bytes[i]) & 0xFF]);
    return crc;
}

void BM_Crc16(benchmark::State& state) {
    const Bytes data = Payload(static_cast<size_t>(state.range(0)));
    if (Crc16(data.data(), data.size()) != TableCrc16(data.data(), data.size())) std::abort();
    for (auto _ : state) benchmark::DoNotOptimize(Crc16(data.data(), data.size()));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_Crc16)->Arg(8)->Arg(256);

void BM_Crc16TableReference(benchmark::State& state) {
    const Bytes data = Payload(static_cast<size_t>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(TableCrc16(data.data(), data.size()));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_Crc16TableReference)->Arg(8)->Arg(256);

// FC03, 10 registers from address 0: the frame of every poll.
void BM_BuildRtuRequestFc03(benchmark::State& state) {
    const Bytes data{0x00, 0x00, 0x00, 0x0A};
    for (auto _ : state) benchmark::DoNotOptimize(BuildRtuRequest(1, 0x03, data));
}
BENCHMARK(BM_BuildRtuRequestFc03);

void BM_BuildTcpRequestFc03(benchmark::State& state) {
    ModbusClient client;
    const Bytes data{0x00, 0x00, 0x00, 0x0A};
    for (auto _ : state) benchmark::DoNotOptimize(client.BuildTcpRequest(1, 0x03, data));
}
BENCHMARK(BM_BuildTcpRequestFc03);

// FC10 with 123 registers: the largest write.
void BM_BuildRtuRequestFc10Max(benchmark::State& state) {
    Bytes data{0x00, 0x00, 0x00, 123, 246};
    const Bytes values = Payload(246);
    data.insert(data.end(), values.begin(), values.end());
    for (auto _ : state) benchmark::DoNotOptimize(BuildRtuRequest(1, 0x10, data));
}
BENCHMARK(BM_BuildRtuRequestFc10Max);

void BM_HexDumpFc03Response(benchmark::State& state) {
    const Bytes frame = Payload(29);
    for (auto _ : state) benchmark::DoNotOptimize(HexDump(frame));
}
BENCHMARK(BM_HexDumpFc03Response);

Modbus::TraceFrame Fc03Frame(int i) {
    Modbus::TraceFrame f;
    f.timestamp = 1700000000000 + i;
    f.text = "192.168.1.10:502";
    f.sequence = static_cast<uint16_t>(i);
    f.peerPort = 502;
    f.peerAddress = 0xC0A8010A;
    f.request = Payload(12);
    f.response = Payload(29);
    f.latencyMs = i % 13;
    return f;
}

// What every transaction adds: one frame into a full log (the oldest goes out).
void BM_TraceRecordIntoFullLog(benchmark::State& state) {
    TraceLog log;
    for (size_t i = 0; i < TraceLog::kDefaultCapacity; ++i) log.Append(Fc03Frame(static_cast<int>(i)));
    int i = 0;
    for (auto _ : state) log.Record(Fc03Frame(i++));
}
BENCHMARK(BM_TraceRecordIntoFullLog);

// What the Diagnostics page costs on the UI thread with a full log.
void FillFull(TraceLog& log) {
    for (size_t i = 0; i < TraceLog::kDefaultCapacity; ++i) log.Append(Fc03Frame(static_cast<int>(i)));
}

void BM_TraceSnapshotFullLog(benchmark::State& state) {
    TraceLog log;
    FillFull(log);
    for (auto _ : state) benchmark::DoNotOptimize(log.Snapshot());
}
BENCHMARK(BM_TraceSnapshotFullLog)->Unit(benchmark::kMicrosecond);

void BM_TraceStatisticsFullLog(benchmark::State& state) {
    TraceLog log;
    FillFull(log);
    for (auto _ : state) benchmark::DoNotOptimize(log.ComputeStatistics());
}
BENCHMARK(BM_TraceStatisticsFullLog)->Unit(benchmark::kMicrosecond);

void BM_TraceBuildPcapFullLog(benchmark::State& state) {
    TraceLog log;
    FillFull(log);
    for (auto _ : state) benchmark::DoNotOptimize(log.BuildPcap("192.168.1.10", 502));
}
BENCHMARK(BM_TraceBuildPcapFullLog)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
