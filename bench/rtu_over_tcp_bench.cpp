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
    return bench::PrintThroughput(std::atof(argv[3]), [&] {
        return master.Client().ReadHoldingRegisters(1, 0, 10, words) && words.size() == 10;
    });
}
