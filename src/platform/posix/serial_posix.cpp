#include "platform/serial.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "platform/clock.h"

namespace platform {

struct PosixSerialPort {
    int fd = -1;
    // A cancel writes one byte here; it stays, so every later read fails at once as well. A cancel
    // only comes before the port is closed, and it must not be lost when it lands between two reads.
    int cancelRead = -1;
    int cancelWrite = -1;
    int64_t fixedReadTimeoutMs = -1;  // set by SerialSetReadTimeout; -1: constant + per byte
};

namespace {

// Read time-outs, the same as the COMMTIMEOUTS of the Windows backend.
constexpr int64_t kIntervalTimeoutMs = 50;
constexpr int64_t kTotalTimeoutConstantMs = 1000;
constexpr int64_t kTotalTimeoutPerByteMs = 10;

speed_t SpeedFor(uint32_t baud) {
    switch (baud) {
        case 50: return B50;
        case 75: return B75;
        case 110: return B110;
        case 134: return B134;
        case 150: return B150;
        case 200: return B200;
        case 300: return B300;
        case 600: return B600;
        case 1200: return B1200;
        case 1800: return B1800;
        case 2400: return B2400;
        case 4800: return B4800;
        case 9600: return B9600;
        case 19200: return B19200;
        case 38400: return B38400;
        case 57600: return B57600;
        case 115200: return B115200;
        case 230400: return B230400;
        case 460800: return B460800;
        case 500000: return B500000;
        case 576000: return B576000;
        case 921600: return B921600;
        case 1000000: return B1000000;
        default: return B9600;
    }
}

tcflag_t CharacterSizeFor(uint8_t dataBits) {
    switch (dataBits) {
        case 5: return CS5;
        case 6: return CS6;
        case 7: return CS7;
        default: return CS8;
    }
}

void ApplyLineSettings(int fd, uint32_t baud, uint8_t dataBits, uint8_t stopBits, char parity) {
    termios tio{};
    tcgetattr(fd, &tio);
    cfmakeraw(&tio);
    cfsetispeed(&tio, SpeedFor(baud));
    cfsetospeed(&tio, SpeedFor(baud));
    tio.c_cflag &= ~(CSIZE | CSTOPB | PARENB | PARODD | CRTSCTS);
    tio.c_cflag |= CharacterSizeFor(dataBits) | CLOCAL | CREAD;
    if (stopBits == 2) tio.c_cflag |= CSTOPB;
    if (parity == 'E') tio.c_cflag |= PARENB;
    if (parity == 'O') tio.c_cflag |= PARENB | PARODD;
    // Parity checking is on unless the letter is 'N', even for a letter that sets no parity bit.
    tio.c_iflag &= ~(INPCK | IXON | IXOFF | IXANY);
    if (parity != 'N') tio.c_iflag |= INPCK;
    tio.c_cc[VMIN] = 0;
    tio.c_cc[VTIME] = 0;
    // Like the Windows backend, the results of the line settings are not checked: a pty refuses some.
    tcsetattr(fd, TCSANOW, &tio);
    int lines = TIOCM_DTR | TIOCM_RTS;
    ioctl(fd, TIOCMBIS, &lines);
}

std::string DevicePath(const std::string& name) {
    if (!name.empty() && name[0] == '/') return name;
    return "/dev/" + name;
}

}  // namespace

SerialHandle InvalidSerialHandle() { return nullptr; }

SerialHandle OpenSerial(const std::string& name, uint32_t baud, uint8_t dataBits, uint8_t stopBits, char parity) {
    const int fd = open(DevicePath(name).c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return nullptr;
    if (!isatty(fd)) {
        close(fd);
        return nullptr;
    }
    ioctl(fd, TIOCEXCL);  // no sharing, as on Windows
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC | O_NONBLOCK) != 0) {
        close(fd);
        return nullptr;
    }
    ApplyLineSettings(fd, baud, dataBits, stopBits, parity);
    tcflush(fd, TCIOFLUSH);
    return new PosixSerialPort{fd, pipeFds[0], pipeFds[1], -1};
}

bool SerialWrite(SerialHandle h, const uint8_t* data, size_t length, size_t& written) {
    written = 0;
    if (h == nullptr) return false;
    const int64_t deadline = MonotonicMicroseconds() / 1000 + kTotalTimeoutConstantMs +
                             kTotalTimeoutPerByteMs * static_cast<int64_t>(length);
    while (written < length) {
        const ssize_t n = write(h->fd, data + written, length - written);
        if (n > 0) {
            written += static_cast<size_t>(n);
            continue;
        }
        if (n < 0 && errno != EAGAIN && errno != EINTR) return false;
        const int64_t left = deadline - MonotonicMicroseconds() / 1000;
        if (left <= 0) break;  // write time-out: report what went out
        pollfd p{h->fd, POLLOUT, 0};
        poll(&p, 1, static_cast<int>(left));
    }
    return true;
}

void SerialSetReadTimeout(SerialHandle h, uint32_t totalMs) {
    if (h != nullptr) h->fixedReadTimeoutMs = totalMs;
}

bool SerialRead(SerialHandle h, uint8_t* data, size_t capacity, size_t& received) {
    received = 0;
    if (h == nullptr) return false;
    const int64_t total = h->fixedReadTimeoutMs >= 0
                              ? h->fixedReadTimeoutMs
                              : kTotalTimeoutConstantMs + kTotalTimeoutPerByteMs * static_cast<int64_t>(capacity);
    const int64_t deadline = MonotonicMicroseconds() / 1000 + total;
    while (received < capacity) {
        int64_t wait = deadline - MonotonicMicroseconds() / 1000;
        if (received > 0) wait = std::min(wait, kIntervalTimeoutMs);
        if (wait <= 0) break;
        pollfd p[2] = {{h->fd, POLLIN, 0}, {h->cancelRead, POLLIN, 0}};
        const int ready = poll(p, 2, static_cast<int>(wait));
        if (ready < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (p[1].revents != 0) return false;  // cancelled
        if (ready == 0) break;                // the gap after the last byte, or the total time-out
        if (p[0].revents & POLLIN) {
            const ssize_t n = read(h->fd, data + received, capacity - received);
            if (n > 0) {
                received += static_cast<size_t>(n);
                continue;
            }
            if (n < 0 && errno != EAGAIN && errno != EINTR) return false;
        }
        // The device is gone (the other end of a pty closed, an adapter pulled): a failed read.
        if (p[0].revents & (POLLHUP | POLLERR | POLLNVAL)) return false;
    }
    return true;
}

bool SerialReadAvailable(SerialHandle h, uint8_t* data, size_t capacity, uint32_t waitMs, size_t& received) {
    received = 0;
    if (h == nullptr) return false;
    pollfd p[2] = {{h->fd, POLLIN, 0}, {h->cancelRead, POLLIN, 0}};
    const int ready = poll(p, 2, static_cast<int>(waitMs));
    if (ready < 0) return errno == EINTR;
    if (p[1].revents != 0) return false;  // cancelled
    if (ready == 0) return true;
    if (p[0].revents & POLLIN) {
        const ssize_t n = read(h->fd, data, capacity);
        if (n > 0) {
            received = static_cast<size_t>(n);
            return true;
        }
        if (n < 0 && (errno == EAGAIN || errno == EINTR)) return true;
    }
    // Nothing to read although poll said so: the device is gone (the other pty end closed).
    return (p[0].revents & (POLLHUP | POLLERR | POLLNVAL)) == 0;
}

void SerialPurge(SerialHandle h, bool receive, bool transmit) {
    if (h == nullptr) return;
    if (receive && transmit) {
        tcflush(h->fd, TCIOFLUSH);
    } else if (receive) {
        tcflush(h->fd, TCIFLUSH);
    } else if (transmit) {
        tcflush(h->fd, TCOFLUSH);
    }
}

void SerialCancel(SerialHandle h) {
    if (h == nullptr) return;
    const char one = 1;
    [[maybe_unused]] const ssize_t n = write(h->cancelWrite, &one, 1);
}

void SerialClose(SerialHandle h) {
    if (h == nullptr) return;
    close(h->fd);
    close(h->cancelRead);
    close(h->cancelWrite);
    delete h;
}

}  // namespace platform
