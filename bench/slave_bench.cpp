// Kestrel's slave in the benchmark: the connection object in the slave role, serving the bench
// image over TCP, with a log callback that keeps every line as the application's does.
//
// Usage: kestrel_bench_slave PORTFILE [LIFETIME_SECONDS]
//          listens on an ephemeral port, written to PORTFILE; ends after LIFETIME_SECONDS
//          (default 120) or on SIGTERM/SIGINT.
//        kestrel_bench_slave --rtu DEVICE [LIFETIME_SECONDS]
//          the RTU slave on a serial device (19200 8N1, unit 1).
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bench_support.h"
#include "platform/clock.h"

namespace {

volatile std::sig_atomic_t g_stop = 0;
void OnSignal(int) { g_stop = 1; }

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s PORTFILE [LIFETIME_SECONDS] | --rtu DEVICE [LIFETIME_SECONDS]\n", argv[0]);
        return 2;
    }
    const bool rtu = std::strcmp(argv[1], "--rtu") == 0 && argc > 2;
    const int lifetimeArg = rtu ? 3 : 2;
    const int64_t lifetimeMs = (argc > lifetimeArg ? std::atol(argv[lifetimeArg]) : 120) * 1000L;
    std::signal(SIGTERM, OnSignal);
    std::signal(SIGINT, OnSignal);

    bench::KeptLines lines;
    ModbusClient slave;
    slave.SetLogCallback(lines.Callback());
    bench::FillBenchImage(slave.Image());
    ConnectionConfig config;
    config.role = 1;
    if (rtu) {
        config.transport = 1;
        config.serialPort = argv[2];
        config.baudRate = 19200;
    } else {
        config.port = 0;
    }
    if (!slave.Connect(config)) return 1;
    if (!rtu) {
        const std::string tmp = std::string(argv[1]) + ".tmp";
        std::FILE* f = std::fopen(tmp.c_str(), "w");
        if (f == nullptr) return 1;
        std::fprintf(f, "%u\n", static_cast<unsigned>(slave.ListeningPort()));
        std::fclose(f);
        std::rename(tmp.c_str(), argv[1]);
    }
    const int64_t start = platform::MonotonicMicroseconds();
    while (!g_stop && platform::MonotonicMicroseconds() - start < lifetimeMs * 1000) platform::SleepMilliseconds(20);
    slave.Disconnect();
    slave.SetLogCallback(nullptr);
    return 0;
}
