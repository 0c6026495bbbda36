#pragma once
// Shared pieces of the Kestrel side of the benchmarks: the log callback the application would
// install, the master set up as the application runs it, one request of the four the throughput
// rows measure, the timed throughput loop, the bench image, peak RSS.
#include <sys/resource.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "protocol/modbus_client.h"
#include "protocol/trace_log.h"

extern "C" {
#include "bench_request.h"
}

namespace bench {

// A log callback as the application's: every line is copied to the heap and handed on (the
// window posts a heap copy to its log and frees it there). The copies of the last 1,024 lines are
// kept, each one freed when its slot is reused.
class KeptLines {
public:
    KeptLines() : lines_(1024) {}
    ModbusClient::LogCallback Callback() {
        return [this](const std::string& line) {
            lines_[count_ % lines_.size()] = std::make_unique<std::string>(line);
            ++count_;
        };
    }
    size_t Count() const { return count_; }

private:
    std::vector<std::unique_ptr<std::string>> lines_;
    size_t count_ = 0;
};

// A master connection as the application runs it: every transaction is recorded in the
// process-wide trace log (which invokes the trace callback), and the log callback keeps every
// TX/RX line (KeptLines). Disconnects and takes the trace callback away when it goes.
class AppMaster {
public:
    AppMaster() {
        SetTraceCallback([this](const Modbus::TraceFrame&) { ++traced_; });
        client_.SetLogCallback(lines_.Callback());
    }
    ~AppMaster() {
        client_.Disconnect();
        SetTraceCallback(nullptr);
    }
    AppMaster(const AppMaster&) = delete;
    AppMaster& operator=(const AppMaster&) = delete;

    // False (with "connect failed" on stderr) when the connection cannot be made.
    bool Connect(const ConnectionConfig& config) {
        if (client_.Connect(config)) return true;
        std::fprintf(stderr, "connect failed\n");
        return false;
    }
    ModbusClient& Client() { return client_; }

private:
    KeptLines lines_;
    long traced_ = 0;
    ModbusClient client_;
};

// One transaction of the request; true when it went through with the expected data.
inline bool RunRequest(ModbusClient& client, BenchRequest request, std::vector<uint16_t>& words,
                       std::vector<bool>& bits, const std::vector<uint16_t>& writeValues) {
    switch (request) {
        case kFc03x10: return client.ReadHoldingRegisters(1, 0, 10, words) && words.size() == 10 && words[9] == 9;
        case kFc03x125:
            return client.ReadHoldingRegisters(1, 0, 125, words) && words.size() == 125 && words[124] == 124;
        case kFc01x2000: return client.ReadCoils(1, 0, 2000, bits) && bits.size() == 2000 && bits[1998] && !bits[1999];
        case kFc16x123: return client.WriteMultipleRegisters(1, 0, writeValues);
        default: return false;
    }
}

// Runs `transaction` (true when it went through) for `seconds`, and at most 100,000,000 times, then
// prints the transactions per second as one line and returns 0; 1 with "transaction failed" on
// stderr when one fails. The clock is read every 16 transactions only.
template <typename Transaction>
int PrintThroughput(double seconds, Transaction transaction) {
    long count = 0;
    const int64_t start = platform::MonotonicMicroseconds();
    const auto limit = static_cast<int64_t>(seconds * 1e6);
    int64_t elapsed = 0;
    while (elapsed < limit && count < 100000000L) {
        if (!transaction()) {
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

inline std::vector<uint16_t> WriteValues() {
    std::vector<uint16_t> values(123);
    for (size_t i = 0; i < values.size(); ++i) values[i] = static_cast<uint16_t>(i);
    return values;
}

// The image both servers hold (bench_request.h).
inline void FillBenchImage(SlaveRegisterImage& image) {
    std::vector<uint16_t> registers(BENCH_REGISTERS);
    for (size_t i = 0; i < registers.size(); ++i) registers[i] = static_cast<uint16_t>(i);
    image.SetHoldingRegisters(0, registers);
    std::vector<bool> coils(BENCH_COILS);
    for (size_t i = 0; i < coils.size(); ++i) coils[i] = BenchCoil(static_cast<int>(i)) != 0;
    image.SetCoils(0, coils);
}

inline long PeakRssKb() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// Current resident set from /proc/self/statm, KiB.
inline long CurrentRssKb() {
    long pages = 0, resident = 0;
    if (std::FILE* f = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
        std::fclose(f);
    }
    return resident * 4;
}

}  // namespace bench
