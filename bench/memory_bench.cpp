// Memory of the parts that grow: the trace log over many real transactions (its cap keeps it
// flat), the recording (unbounded by design: bytes per entry), and the slave under connect churn.
//
// Usage: kestrel_bench_memory trace HOST PORT N    N FC03 x 10 transactions with the trace on
//        kestrel_bench_memory recording N          N entries recorded as the results handler does
//        kestrel_bench_memory churn CYCLES         our slave, CYCLES client connect-and-close
// Prints "name value" lines (KiB for RSS figures; heap figures from glibc's mallinfo2).
#include <dirent.h>
#include <malloc.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench_support.h"
#include "platform/clock.h"
#include "platform/net.h"
#include "polling/recording_buffer.h"
#include "protocol/trace_log.h"

namespace {

// Small blocks plus the large ones glibc maps on their own (a big vector's buffer).
size_t HeapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

int OpenFdCount() {
    int count = 0;
    if (DIR* dir = opendir("/proc/self/fd")) {
        while (readdir(dir) != nullptr) ++count;
        closedir(dir);
    }
    return count - 2;  // . and ..
}

int Trace(const char* host, uint16_t port, long n) {
    bench::AppMaster master;
    ConnectionConfig config;
    config.ipAddress = host;
    config.port = port;
    if (!master.Connect(config)) return 1;
    ModbusClient& client = master.Client();
    std::vector<uint16_t> words;
    const long checkpoints[] = {n / 100, n / 10, n};
    size_t next = 0;
    for (long i = 1; i <= n; ++i) {
        if (!client.ReadHoldingRegisters(1, 0, 10, words)) {
            std::fprintf(stderr, "read failed\n");
            return 1;
        }
        if (next < 3 && i == checkpoints[next]) {
            std::printf("rss_kb_after_%ld %ld\n", i, bench::CurrentRssKb());
            ++next;
        }
    }
    client.Disconnect();
    std::printf("trace_frames_kept %zu\n", GlobalTraceLog().Size());
    std::printf("peak_rss_kb %ld\n", bench::PeakRssKb());
    return 0;
}

int Recording(long n) {
    RecordingBuffer recording;
    recording.ToggleRecording("bench");
    Modbus::ModbusDetail detail;
    detail.id = 17;
    detail.name = "Boiler temperature";
    detail.unit = "degC";
    Modbus::PollingResult result;
    result.detailId = detail.id;
    result.name = detail.name;
    result.value = DecodedValue{int64_t{1234}};
    result.displayText = "1234";
    result.ok = true;
    const size_t before = HeapInUse();
    for (long i = 0; i < n; ++i) recording.Record(result, detail);
    const size_t after = HeapInUse();
    std::printf("sizeof_record_entry %zu\n", sizeof(RecordEntry));
    std::printf("recording_heap_bytes_per_entry %.1f\n", static_cast<double>(after - before) / static_cast<double>(n));
    return 0;
}

int Churn(long cycles) {
    std::atomic<long> disconnected{0};
    ModbusClient slave;
    slave.SetLogCallback([&disconnected, kept = std::vector<std::string>()](const std::string& line) mutable {
        if (kept.size() >= 1000) kept.clear();  // a window log keeps its own lines; here only the last ones
        kept.push_back(line);
        if (line == "Client disconnected." || line == "Client getrennt.") disconnected.fetch_add(1);
    });
    ConnectionConfig config;
    config.role = 1;
    config.port = 0;
    if (!slave.Connect(config)) return 1;
    const uint16_t port = slave.ListeningPort();
    const auto cycle = [&](long i) {
        const SOCKET s = platform::TcpSocket();
        if (s == INVALID_SOCKET || !platform::ConnectIpv4(s, "127.0.0.1", port)) return false;
        platform::CloseSocket(s);
        // Wait until the slave has let this client go, so the backlog never fills (bounded: 5 s).
        const int64_t start = platform::MonotonicMicroseconds();
        while (disconnected.load() < i + 1) {
            if (platform::MonotonicMicroseconds() - start > 5000000) return false;
            platform::SleepMilliseconds(0);
        }
        return true;
    };
    const long warmup = 100;
    for (long i = 0; i < warmup; ++i) {
        if (!cycle(i)) return 1;
    }
    const long rssBefore = bench::CurrentRssKb();
    const int fdsBefore = OpenFdCount();
    const int64_t start = platform::MonotonicMicroseconds();
    for (long i = warmup; i < warmup + cycles; ++i) {
        if (!cycle(i)) {
            std::fprintf(stderr, "cycle %ld failed\n", i);
            return 1;
        }
    }
    const double seconds = static_cast<double>(platform::MonotonicMicroseconds() - start) / 1e6;
    std::printf("churn_cycles %ld\n", cycles);
    std::printf("churn_seconds %.2f\n", seconds);
    std::printf("churn_rss_kb_before %ld\n", rssBefore);
    std::printf("churn_rss_kb_after %ld\n", bench::CurrentRssKb());
    std::printf("churn_fds_before %d\n", fdsBefore);
    std::printf("churn_fds_after %d\n", OpenFdCount());
    slave.Disconnect();
    slave.SetLogCallback(nullptr);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 5 && std::strcmp(argv[1], "trace") == 0) {
        return Trace(argv[2], static_cast<uint16_t>(std::atoi(argv[3])), std::atol(argv[4]));
    }
    if (argc == 3 && std::strcmp(argv[1], "recording") == 0) return Recording(std::atol(argv[2]));
    if (argc == 3 && std::strcmp(argv[1], "churn") == 0) return Churn(std::atol(argv[2]));
    std::fprintf(stderr, "usage: %s trace HOST PORT N | recording N | churn CYCLES\n", argv[0]);
    return 2;
}
