#include "support/serial_pair.h"

#include <chrono>
#include <cstdlib>

#if defined(_WIN32)
#include "platform/clock.h"
#else
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>
#endif

namespace {
int64_t NowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}
}  // namespace

#if defined(_WIN32)

SerialPair::SerialPair() {
    const char* a = std::getenv("KESTREL_COM_A");
    const char* b = std::getenv("KESTREL_COM_B");
    if (a == nullptr || b == nullptr) return;
    deviceName_ = a;
    peer_ = platform::OpenSerial(b, 19200, 8, 1, 'N');
}

SerialPair::~SerialPair() {
    if (platform::IsValid(peer_)) platform::SerialClose(peer_);
}

bool SerialPair::Ok() const { return platform::IsValid(peer_); }

bool SerialPair::Write(const Bytes& bytes) {
    size_t written = 0;
    return platform::SerialWrite(peer_, bytes.data(), bytes.size(), written) && written == bytes.size();
}

bool SerialPair::WriteAll(const Bytes& bytes, int timeoutMs) {
    // The port's own write time-out bounds each write.
    const int64_t deadline = NowMs() + timeoutMs;
    size_t done = 0;
    while (done < bytes.size() && NowMs() < deadline) {
        size_t written = 0;
        if (!platform::SerialWrite(peer_, bytes.data() + done, bytes.size() - done, written)) return false;
        done += written;
    }
    return done == bytes.size();
}

SerialPair::Bytes SerialPair::Read(size_t n, int timeoutMs) {
    Bytes out;
    const int64_t deadline = NowMs() + timeoutMs;
    while (out.size() < n && NowMs() < deadline) {
        uint8_t buffer[256];
        size_t got = 0;
        if (!platform::SerialRead(peer_, buffer, std::min<size_t>(sizeof buffer, n - out.size()), got)) break;
        out.insert(out.end(), buffer, buffer + got);
    }
    return out;
}

SerialPair::Bytes SerialPair::ReadFrame(int timeoutMs, int) {
    // The port's own time-outs end a read 50 ms after the last byte.
    Bytes out;
    const int64_t deadline = NowMs() + timeoutMs;
    while (out.empty() && NowMs() < deadline) {
        uint8_t buffer[256];
        size_t got = 0;
        if (!platform::SerialRead(peer_, buffer, sizeof buffer, got)) break;
        out.insert(out.end(), buffer, buffer + got);
    }
    return out;
}

#else

SerialPair::SerialPair() {
    char name[128] = {};
    if (openpty(&master_, &slave_, name, nullptr, nullptr) != 0) return;
    termios tio{};
    tcgetattr(slave_, &tio);
    cfmakeraw(&tio);
    tcsetattr(slave_, TCSANOW, &tio);
    tcgetattr(master_, &tio);
    cfmakeraw(&tio);
    tcsetattr(master_, TCSANOW, &tio);
    fcntl(master_, F_SETFL, fcntl(master_, F_GETFL) | O_NONBLOCK);
    fcntl(master_, F_SETFD, FD_CLOEXEC);
    fcntl(slave_, F_SETFD, FD_CLOEXEC);
    deviceName_ = name;
}

SerialPair::~SerialPair() {
    if (master_ >= 0) close(master_);
    if (slave_ >= 0) close(slave_);
}

bool SerialPair::Ok() const { return master_ >= 0; }

bool SerialPair::Write(const Bytes& bytes) {
    return write(master_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
}

bool SerialPair::WriteAll(const Bytes& bytes, int timeoutMs) {
    const int64_t deadline = NowMs() + timeoutMs;
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = write(master_, bytes.data() + done, bytes.size() - done);
        if (n > 0) {
            done += static_cast<size_t>(n);
            continue;
        }
        const int64_t left = deadline - NowMs();
        if (left <= 0) return false;
        pollfd p{master_, POLLOUT, 0};
        poll(&p, 1, static_cast<int>(std::min<int64_t>(left, 100)));
    }
    return true;
}

SerialPair::Bytes SerialPair::Read(size_t n, int timeoutMs) {
    Bytes out;
    const int64_t deadline = NowMs() + timeoutMs;
    while (out.size() < n) {
        const int64_t left = deadline - NowMs();
        if (left <= 0) break;
        pollfd p{master_, POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(left)) <= 0) break;
        uint8_t buffer[256];
        const ssize_t got = read(master_, buffer, std::min<size_t>(sizeof buffer, n - out.size()));
        if (got > 0) out.insert(out.end(), buffer, buffer + got);
    }
    return out;
}

SerialPair::Bytes SerialPair::ReadFrame(int timeoutMs, int gapMs) {
    Bytes out;
    const int64_t deadline = NowMs() + timeoutMs;
    while (true) {
        const int64_t left = deadline - NowMs();
        if (left <= 0) break;
        pollfd p{master_, POLLIN, 0};
        const int wait = out.empty() ? static_cast<int>(left) : std::min(gapMs, static_cast<int>(left));
        if (poll(&p, 1, wait) <= 0) break;
        uint8_t buffer[256];
        const ssize_t got = read(master_, buffer, sizeof buffer);
        if (got > 0) out.insert(out.end(), buffer, buffer + got);
    }
    return out;
}

#endif
