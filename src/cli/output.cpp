#include "cli/output.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#if !defined(_WIN32)
#include <sys/stat.h>
#endif

namespace cli {
namespace {

constexpr size_t kFlushBytes = 64 * 1024;
constexpr auto kFlushInterval = std::chrono::milliseconds(20);

struct Chunk {
    std::FILE* stream;
    std::string text;
};

std::mutex g_bufferMutex;  // the chunks and the flags below
std::mutex g_writeMutex;   // one writer at a time, so batches reach the files in order
std::vector<Chunk> g_chunks;
size_t g_bytes = 0;
bool g_buffering = false;
bool g_stopFlusher = false;
std::condition_variable g_wake;
std::thread g_flusher;

// Where stdout and stderr lead. When both are the same file or pipe (2>&1), their text goes out
// through stdout as one piece in the order it was written; when they are different files, each
// stream's text goes out as one piece; when it cannot be told (Windows), chunk by chunk in order.
enum class Targets { Same, Different, Unknown };
Targets g_targets = Targets::Unknown;

Targets FindTargets() {
#if defined(_WIN32)
    return Targets::Unknown;
#else
    struct stat out {}, err {};
    if (fstat(fileno(stdout), &out) != 0 || fstat(fileno(stderr), &err) != 0) return Targets::Unknown;
    return out.st_dev == err.st_dev && out.st_ino == err.st_ino ? Targets::Same : Targets::Different;
#endif
}

void Write(std::FILE* stream, const std::string& text) {
    if (text.empty()) return;
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fflush(stream);
}

void Append(std::FILE* stream, std::string_view text, bool lineEnd) {
    bool flushNow = false;
    {
        std::lock_guard<std::mutex> lock(g_bufferMutex);
        if (g_chunks.empty() || g_chunks.back().stream != stream) g_chunks.push_back({stream, {}});
        std::string& chunk = g_chunks.back().text;
        chunk.append(text);
        if (lineEnd) chunk.push_back('\n');
        g_bytes += text.size() + (lineEnd ? 1 : 0);
        flushNow = !g_buffering || g_bytes >= kFlushBytes;
    }
    if (flushNow) FlushOutput();
}

void FlushPeriodically() {
    std::unique_lock<std::mutex> lock(g_bufferMutex);
    while (!g_stopFlusher) {
        g_wake.wait_for(lock, kFlushInterval, [] { return g_stopFlusher; });
        if (g_bytes == 0) continue;
        lock.unlock();
        FlushOutput();
        lock.lock();
    }
}

}  // namespace

BufferedOutput::BufferedOutput() {
    std::lock_guard<std::mutex> lock(g_bufferMutex);
    g_targets = FindTargets();
    g_buffering = true;
    g_stopFlusher = false;
    g_flusher = std::thread(FlushPeriodically);
}

BufferedOutput::~BufferedOutput() {
    {
        std::lock_guard<std::mutex> lock(g_bufferMutex);
        g_buffering = false;
        g_stopFlusher = true;
    }
    g_wake.notify_all();
    g_flusher.join();
    FlushOutput();
}

void OutLine(std::string_view line) { Append(stdout, line, true); }
void ErrLine(std::string_view line) { Append(stderr, line, true); }
void OutText(std::string_view text) { Append(stdout, text, false); }

void FlushOutput() {
    std::lock_guard<std::mutex> writing(g_writeMutex);
    std::vector<Chunk> chunks;
    {
        std::lock_guard<std::mutex> lock(g_bufferMutex);
        chunks.swap(g_chunks);
        g_bytes = 0;
    }
    if (chunks.empty()) return;
    if (g_targets == Targets::Unknown) {
        for (const Chunk& chunk : chunks) Write(chunk.stream, chunk.text);
        return;
    }
    std::string out, err;
    for (Chunk& chunk : chunks) {
        std::string& to = g_targets == Targets::Same || chunk.stream == stdout ? out : err;
        if (to.empty()) {
            to = std::move(chunk.text);
        } else {
            to += chunk.text;
        }
    }
    if (g_targets == Targets::Same) {
        Write(stdout, out);
    } else {
        // Different files: the order between them cannot be seen, so stderr's lines go first
        // (as an unbuffered stream's would).
        Write(stderr, err);
        Write(stdout, out);
    }
}

}  // namespace cli
