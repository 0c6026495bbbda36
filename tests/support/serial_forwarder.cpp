#include "support/serial_forwarder.h"

#if !defined(_WIN32)
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>

namespace {

void MakeRaw(int fd) {
    termios tio{};
    tcgetattr(fd, &tio);
    cfmakeraw(&tio);
    tcsetattr(fd, TCSANOW, &tio);
}

// Writes all of it; a full pty buffer is waited out for at most a second.
void WriteAll(int fd, const uint8_t* data, size_t length) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    size_t done = 0;
    while (done < length && std::chrono::steady_clock::now() < deadline) {
        const ssize_t n = write(fd, data + done, length - done);
        if (n > 0) {
            done += static_cast<size_t>(n);
            continue;
        }
        pollfd p{fd, POLLOUT, 0};
        poll(&p, 1, 10);
    }
}

}  // namespace

SerialForwarder::SerialForwarder() {
    for (int i = 0; i < 3; ++i) {
        char name[128] = {};
        if (openpty(&masters_[i], &slaves_[i], name, nullptr, nullptr) != 0) return;
        MakeRaw(slaves_[i]);
        MakeRaw(masters_[i]);
        fcntl(masters_[i], F_SETFL, fcntl(masters_[i], F_GETFL) | O_NONBLOCK);
        fcntl(masters_[i], F_SETFD, FD_CLOEXEC);
        fcntl(slaves_[i], F_SETFD, FD_CLOEXEC);
        names_[i] = name;
    }
    ok_ = true;
    thread_ = std::thread([this] { Run(); });
}

SerialForwarder::~SerialForwarder() {
    stop_.store(true);
    if (thread_.joinable()) thread_.join();
    for (int i = 0; i < 3; ++i) {
        if (masters_[i] >= 0) close(masters_[i]);
        if (slaves_[i] >= 0) close(slaves_[i]);
    }
}

void SerialForwarder::Run() {
    while (!stop_.load()) {
        pollfd p[3];
        for (int i = 0; i < 3; ++i) p[i] = {masters_[i], POLLIN, 0};
        if (poll(p, 3, 10) <= 0) continue;
        for (int i = 0; i < 3; ++i) {
            if (!(p[i].revents & POLLIN)) continue;
            uint8_t buffer[4096];
            const ssize_t n = read(masters_[i], buffer, sizeof buffer);
            if (n <= 0) continue;
            if (i == 2) {
                fromListener_ += static_cast<size_t>(n);
                continue;
            }
            WriteAll(masters_[1 - i], buffer, static_cast<size_t>(n));
            WriteAll(masters_[2], buffer, static_cast<size_t>(n));
        }
        // A port whose other side is closed reports POLLHUP without data: do not spin on it.
        bool hungUp = false;
        for (int i = 0; i < 3; ++i) hungUp = hungUp || ((p[i].revents & POLLHUP) && !(p[i].revents & POLLIN));
        if (hungUp) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}
#endif
