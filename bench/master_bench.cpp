// Our side of the master benchmark: FC03 reads of 10 holding registers in a loop, through the
// connection object exactly as the register tab and the poll thread use it (every transaction is
// traced into the process-wide trace log).
//
// Usage: kestrel_bench_master HOST PORT SECONDS [--log]
//   --log  installs a log callback that drops the lines, as the application always has one.
//
// Prints the number of transactions per second (one line); exits 1 when a read fails.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "protocol/modbus_client.h"
#include "protocol/trace_log.h"

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: %s HOST PORT SECONDS [--log]\n", argv[0]);
        return 2;
    }
    const double seconds = std::atof(argv[3]);
    const bool withLog = argc > 4 && std::strcmp(argv[4], "--log") == 0;

    ModbusClient client;
    if (withLog) client.SetLogCallback([](const std::string&) {});
    ConnectionConfig config;
    config.ipAddress = argv[1];
    config.port = static_cast<uint16_t>(std::atoi(argv[2]));
    if (!client.Connect(config)) {
        std::fprintf(stderr, "connect failed\n");
        return 1;
    }
    std::vector<uint16_t> words;
    long count = 0;
    const int64_t start = platform::MonotonicMicroseconds();
    const int64_t limit = static_cast<int64_t>(seconds * 1e6);
    int64_t elapsed = 0;
    // Bounded by time and by count.
    while (elapsed < limit && count < 100000000L) {
        if (!client.ReadHoldingRegisters(1, 0, 10, words) || words.size() != 10 || words[9] != 9) {
            std::fprintf(stderr, "read failed\n");
            return 1;
        }
        ++count;
        if ((count & 63) == 0) elapsed = platform::MonotonicMicroseconds() - start;
    }
    elapsed = platform::MonotonicMicroseconds() - start;
    std::printf("%.0f\n", static_cast<double>(count) * 1e6 / static_cast<double>(elapsed));
    client.Disconnect();
    return 0;
}
