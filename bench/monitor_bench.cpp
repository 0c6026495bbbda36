// The bus monitor's frame recovery on the worst case for a silence-based splitter: a continuous
// stream with no gap at all, read in slices that cut frames anywhere.
//
//   kestrel_bench_monitor splitter FRAMES NOISE_EVERY
//       in-process: FRAMES frames (requests and responses of every function code) in 4,096-byte
//       reads with no silence; with NOISE_EVERY > 0 one noise byte (0xFF and 0x00 in turn) after every that many
//       frames. Prints frames recovered per second, the share recovered exactly (the same bytes in
//       the same place of the sequence), noise bytes counted, and CPU per frame.
//   kestrel_bench_monitor write DEVICE FRAMES EXPECTED_FILE
//       writes the same gapless stream (no noise) to a serial device as fast as it takes it, and the
//       frames as hex lines (as the monitor's CSV writes them) to EXPECTED_FILE.
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "monitor/rtu_frame_splitter.h"
#include "protocol/frame_codec.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes Frame(std::initializer_list<int> bytes) {
    Bytes all;
    for (int b : bytes) all.push_back(static_cast<uint8_t>(b));
    return BuildRtuRequest(all[0], all[1], Bytes(all.begin() + 2, all.end()));
}

// Requests and responses as a master and its devices exchange them: reads of 10 and 125 registers,
// coils, writes, an exception, FC08 (CRC alone).
std::vector<Bytes> Exchanges() {
    Bytes read125 = {1, 3, 250};
    for (int i = 0; i < 250; ++i) read125.push_back(static_cast<uint8_t>(i));
    Bytes words10 = {1, 3, 20};
    for (int i = 0; i < 20; ++i) words10.push_back(static_cast<uint8_t>(i * 7));
    const auto framed = [](const Bytes& b) { return BuildRtuRequest(b[0], b[1], Bytes(b.begin() + 2, b.end())); };
    return {Frame({1, 3, 0, 0, 0, 10}),         framed(words10),
            Frame({1, 3, 0, 0, 0, 125}),        framed(read125),
            Frame({2, 1, 0, 0, 0, 20}),         Frame({2, 1, 3, 0xAA, 0x55, 0x0F}),
            Frame({2, 6, 0, 1, 0x12, 0x34}),    Frame({2, 6, 0, 1, 0x12, 0x34}),
            Frame({3, 16, 0, 1, 0, 2, 4, 0, 10, 0, 20}), Frame({3, 16, 0, 1, 0, 2}),
            Frame({3, 4, 0, 9, 0, 1}),          Frame({3, 0x84, 2}),
            Frame({4, 8, 0, 0, 0xA5, 0x37}),    Frame({4, 8, 0, 0, 0xA5, 0x37})};
}

std::vector<Bytes> Stream(size_t frames) {
    const std::vector<Bytes> exchanges = Exchanges();
    std::vector<Bytes> out;
    for (size_t i = 0; out.size() < frames; ++i) out.push_back(exchanges[i % exchanges.size()]);
    return out;
}

double CpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

int RunSplitter(size_t frames, size_t noiseEvery) {
    const std::vector<Bytes> sent = Stream(frames);
    Bytes stream;
    for (size_t i = 0; i < sent.size(); ++i) {
        stream.insert(stream.end(), sent[i].begin(), sent[i].end());
        if (noiseEvery != 0 && (i + 1) % noiseEvery == 0) stream.push_back((i / noiseEvery) % 2 ? 0x00 : 0xFF);
    }
    Modbus::RtuFrameSplitter splitter(1750, 520);
    std::vector<Modbus::SplitFrame> got;
    got.reserve(frames);
    const auto start = std::chrono::steady_clock::now();
    const double cpuStart = CpuSeconds();
    Modbus::SplitFrame frame;
    for (size_t at = 0; at < stream.size(); at += 4096) {
        const size_t n = std::min<size_t>(4096, stream.size() - at);
        // Every read at the same instant: no silence anywhere.
        splitter.Feed(stream.data() + at, n, 0);
        while (splitter.Next(0, frame)) got.push_back(frame);
    }
    while (splitter.NextAtEnd(frame)) got.push_back(frame);
    const double cpu = CpuSeconds() - cpuStart;
    const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    // A frame is recovered exactly when it comes out with its bytes in its place of the sequence;
    // a lost or broken frame does not shift the count of the frames after it.
    size_t exact = 0;
    for (size_t i = 0, j = 0; i < sent.size() && j < got.size();) {
        if (got[j].crcOk && got[j].bytes == sent[i]) {
            ++exact, ++i, ++j;
        } else if (j + 1 < got.size() && got[j + 1].crcOk && got[j + 1].bytes == sent[i]) {
            ++j;  // a frame that was not sent (noise taken for a frame)
        } else {
            ++i;  // a sent frame that did not come out as it was
            if (!(got[j].crcOk && i < sent.size() && got[j].bytes == sent[i])) ++j;
        }
    }
    std::printf("frames_sent %zu\nframes_recovered %zu\nexact_share_percent %.3f\nnoise_bytes %llu\n", sent.size(),
                got.size(), 100.0 * static_cast<double>(exact) / static_cast<double>(sent.size()),
                static_cast<unsigned long long>(splitter.NoiseBytes()));
    std::printf("frames_per_s %.0f\ncpu_ns_per_frame %.0f\n", static_cast<double>(got.size()) / wall,
                cpu * 1e9 / static_cast<double>(got.size()));
    return 0;
}

int RunWrite(const std::string& device, size_t frames, const std::string& expectedPath) {
    const std::vector<Bytes> sent = Stream(frames);
    std::FILE* expected = std::fopen(expectedPath.c_str(), "w");
    if (expected == nullptr) return 1;
    Bytes stream;
    for (const Bytes& f : sent) {
        stream.insert(stream.end(), f.begin(), f.end());
        std::fprintf(expected, "%s\n", HexDump(f).c_str());
    }
    std::fclose(expected);
    const int fd = open(device.c_str(), O_WRONLY | O_NOCTTY);
    if (fd < 0) return 1;
    size_t done = 0;
    while (done < stream.size()) {
        const ssize_t n = write(fd, stream.data() + done, stream.size() - done);
        if (n > 0) {
            done += static_cast<size_t>(n);
        } else {
            pollfd p{fd, POLLOUT, 0};
            poll(&p, 1, 100);
        }
    }
    tcdrain(fd);
    close(fd);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "splitter" && argc == 4) {
        return RunSplitter(std::strtoul(argv[2], nullptr, 10), std::strtoul(argv[3], nullptr, 10));
    }
    if (mode == "write" && argc == 5) return RunWrite(argv[2], std::strtoul(argv[3], nullptr, 10), argv[4]);
    std::fprintf(stderr,
                 "usage: kestrel_bench_monitor splitter FRAMES NOISE_EVERY | write DEVICE FRAMES EXPECTED_FILE\n");
    return 2;
}
