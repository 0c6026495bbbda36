// Kestrel's master in the benchmark: one of the four requests in a loop through the connection
// object as the application runs it: every transaction is recorded in the process-wide trace log
// (which invokes the trace callback), and a log callback keeps every TX/RX line.
//
// Usage: kestrel_bench_master HOST PORT SECONDS REQUEST   transactions/s (one line)
//        kestrel_bench_master --rtu DEVICE COUNT          COUNT FC03 x 10 reads over RTU, transactions/s
//
// Exits 1 when a transaction fails or returns wrong data.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench_support.h"
#include "platform/clock.h"

namespace {

int Throughput(ModbusClient& client, double seconds, BenchRequest request) {
    std::vector<uint16_t> words;
    std::vector<bool> bits;
    const std::vector<uint16_t> writeValues = bench::WriteValues();
    return bench::PrintThroughput(
        seconds, [&] { return bench::RunRequest(client, request, words, bits, writeValues); });
}

int RtuReads(ModbusClient& client, long count) {
    std::vector<uint16_t> words;
    const int64_t start = platform::MonotonicMicroseconds();
    for (long i = 0; i < count; ++i) {
        if (!client.ReadHoldingRegisters(1, 0, 10, words) || words.size() != 10 || words[9] != 9) {
            std::fprintf(stderr, "rtu read failed\n");
            return 1;
        }
    }
    const double elapsed = static_cast<double>(platform::MonotonicMicroseconds() - start);
    std::printf("%.1f\n", static_cast<double>(count) * 1e6 / elapsed);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const bool rtu = argc == 4 && std::strcmp(argv[1], "--rtu") == 0;
    if (!rtu && (argc != 5 || ParseBenchRequest(argv[4]) == kBadRequest)) {
        std::fprintf(stderr, "usage: %s HOST PORT SECONDS fc03x10|fc03x125|fc01x2000|fc16x123\n"
                             "       %s --rtu DEVICE COUNT\n", argv[0], argv[0]);
        return 2;
    }
    bench::AppMaster master;
    ConnectionConfig config;
    if (rtu) {
        config.transport = 1;
        config.serialPort = argv[2];
        config.baudRate = 19200;
    } else {
        config.ipAddress = argv[1];
        config.port = static_cast<uint16_t>(std::atoi(argv[2]));
    }
    if (!master.Connect(config)) return 1;
    return rtu ? RtuReads(master.Client(), std::atol(argv[3]))
               : Throughput(master.Client(), std::atof(argv[3]), ParseBenchRequest(argv[4]));
}
