#include "cli/output.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

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
    for (const Chunk& chunk : chunks) {
        std::fwrite(chunk.text.data(), 1, chunk.text.size(), chunk.stream);
        std::fflush(chunk.stream);
    }
}

}  // namespace cli
