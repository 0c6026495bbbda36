// Kestrel's master over RTU over TCP in the benchmark: FC03 reads of 10 registers in a loop, as the
// application runs them (trace log and log callback on), against any RTU-over-TCP server.
//
// Usage: kestrel_bench_rtu_over_tcp HOST PORT SECONDS   transactions/s (one line)
//
// Exits 1 when a transaction fails.
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench_support.h"
#include "platform/clock.h"

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s HOST PORT SECONDS\n", argv[0]);
        return 2;
    }
    bench::AppMaster master;
    ConnectionConfig config;
    config.transport = kTransportRtuOverTcp;
    config.ipAddress = argv[1];
    config.port = static_cast<uint16_t>(std::atoi(argv[2]));
    if (!master.Connect(config)) return 1;
    std::vector<uint16_t> words;
    long count = 0;
    const int64_t start = platform::MonotonicMicroseconds();
    const auto limit = static_cast<int64_t>(std::atof(argv[3]) * 1e6);
    int64_t elapsed = 0;
    // Bounded by time and by count.
    while (elapsed < limit && count < 100000000L) {
        if (!master.Client().ReadHoldingRegisters(1, 0, 10, words) || words.size() != 10) {
            std::fprintf(stderr, "transaction failed\n");
            return 1;
        }
        ++count;
        if ((count & 15) == 0) elapsed = platform::MonotonicMicroseconds() - start;
    }
    elapsed = platform::MonotonicMicroseconds() - start;
    std::printf("%.0f\n", static_cast<double>(count) * 1e6 / static_cast<double>(elapsed));
    return 0;
}
