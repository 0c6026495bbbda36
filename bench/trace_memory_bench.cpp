// Trace-log memory: heap bytes per traced frame and the peak resident set of a process that traces
// many transactions, with the log's cap and without it.
//
// Usage: kestrel_bench_trace_memory per-frame
//        kestrel_bench_trace_memory rss FRAMES CAPACITY
// Prints "name value" lines. Frames are those of an FC03 read of 10 registers over TCP (12-byte
// request, 29-byte response), as the connection produces them. Heap figures come from glibc's
// mallinfo2; peak RSS from getrusage.
#include <malloc.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "protocol/trace_log.h"

namespace {

Modbus::TraceFrame Fc03Frame(long i) {
    Modbus::TraceFrame f;
    f.timestamp = 1700000000000 + i;
    f.text = "192.168.1.10:502";
    f.sequence = static_cast<uint16_t>(i);
    f.peerPort = 502;
    f.peerAddress = 0xC0A8010A;
    f.request = {0x00, 0x01, 0x00, 0x00, 0x00, 0x06, 0x01, 0x03, 0x00, 0x00, 0x00, 0x0A};
    f.response.assign(29, 0x00);
    f.response[7] = 0x03;
    f.response[8] = 20;
    f.latencyMs = i % 13;
    return f;
}

// Small blocks plus the large ones glibc maps on their own (a big vector's buffer).
size_t HeapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

long PeakRssKb() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc >= 2 && std::strcmp(argv[1], "per-frame") == 0) {
        const size_t n = TraceLog::kDefaultCapacity;
        TraceLog log(n);
        const size_t before = HeapInUse();
        for (size_t i = 0; i < n; ++i) log.Record(Fc03Frame(static_cast<long>(i)));
        const size_t after = HeapInUse();
        std::printf("sizeof_trace_frame %zu\n", sizeof(Modbus::TraceFrame));
        std::printf("heap_bytes_per_frame %.1f\n", static_cast<double>(after - before) / static_cast<double>(n));
        std::printf("heap_bytes_full_log %zu\n", after - before);
        return 0;
    }
    if (argc >= 4 && std::strcmp(argv[1], "rss") == 0) {
        const long frames = std::atol(argv[2]);
        const size_t capacity = static_cast<size_t>(std::atol(argv[3]));
        const long baseline = PeakRssKb();
        TraceLog log(capacity);
        for (long i = 0; i < frames; ++i) log.Record(Fc03Frame(i));
        std::printf("frames %ld\n", frames);
        std::printf("capacity %zu\n", capacity);
        std::printf("kept %zu\n", log.Size());
        std::printf("baseline_rss_kb %ld\n", baseline);
        std::printf("peak_rss_kb %ld\n", PeakRssKb());
        return 0;
    }
    std::fprintf(stderr, "usage: %s per-frame | rss FRAMES CAPACITY\n", argv[0]);
    return 2;
}
