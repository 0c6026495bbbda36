#pragma once
// Helpers shared by the slave tests: hex byte literals, a loopback TCP client that can tell a
// silent server from a closed connection, waiting for a log line, and starting a slave on an
// ephemeral port. Everything goes through the platform seam, so it builds for Windows too.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "common/localizer.h"
#include "platform/net.h"
#include "protocol/modbus_client.h"
#include "support/log_capture.h"

namespace slavetest {

using Bytes = std::vector<uint8_t>;

// "01 03 00 00" -> {0x01, 0x03, 0x00, 0x00}
inline Bytes Hex(const std::string& text) {
    Bytes bytes;
    std::string digits;
    for (char c : text) {
        if (c == ' ') continue;
        digits.push_back(c);
        if (digits.size() == 2) {
            bytes.push_back(static_cast<uint8_t>(std::stoul(digits, nullptr, 16)));
            digits.clear();
        }
    }
    return bytes;
}

inline std::string ToHex(const Bytes& bytes) { return HexDump(bytes); }

inline int64_t NowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

inline void SetEnglish(bool english) { Localizer::SetAllLanguages(english ? 1 : 0); }

// Waits (bounded) until the capture holds `line`.
inline bool WaitForLine(const LogCapture& log, const std::string& line, int timeoutMs = 3000) {
    const int64_t deadline = NowMs() + timeoutMs;
    while (NowMs() < deadline) {
        if (log.Contains(line)) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return log.Contains(line);
}

inline size_t CountLines(const LogCapture& log, const std::string& line) {
    size_t n = 0;
    for (const auto& l : log.Lines())
        if (l == line) ++n;
    return n;
}

// Lines that start with "Slave:", the request-processing log of the slave.
inline std::vector<std::string> SlaveLines(const LogCapture& log) {
    std::vector<std::string> lines;
    for (const auto& l : log.Lines())
        if (l.rfind("Slave:", 0) == 0) lines.push_back(l);
    return lines;
}

// A Modbus TCP client on 127.0.0.1.
class TestClient {
public:
    enum class Result { Data, Silent, Closed };

    TestClient() = default;
    explicit TestClient(uint16_t port) { Connect(port); }
    ~TestClient() { Close(); }
    TestClient(const TestClient&) = delete;
    TestClient& operator=(const TestClient&) = delete;

    bool Connect(uint16_t port) {
        socket_ = platform::TcpSocket();
        if (socket_ == INVALID_SOCKET) return false;
        if (!platform::ConnectIpv4(socket_, "127.0.0.1", port)) {
            Close();
            return false;
        }
        return true;
    }
    bool IsOpen() const { return socket_ != INVALID_SOCKET; }
    void Close() {
        if (socket_ != INVALID_SOCKET) platform::CloseSocket(socket_);
        socket_ = INVALID_SOCKET;
    }
    bool Send(const Bytes& bytes) {
        return platform::Send(socket_, bytes.data(), bytes.size()) == static_cast<int>(bytes.size());
    }

    // Receives exactly n bytes within timeoutMs. `result` says why it stopped short.
    Bytes Receive(size_t n, int timeoutMs, Result* result = nullptr) {
        Bytes out;
        const int64_t deadline = NowMs() + timeoutMs;
        Result why = Result::Data;
        while (out.size() < n) {
            const int64_t left = deadline - NowMs();
            if (left <= 0) {
                why = Result::Silent;
                break;
            }
            platform::SetReceiveTimeout(socket_, static_cast<uint32_t>(std::min<int64_t>(left, 200)));
            uint8_t buffer[512];
            const int got = platform::Recv(socket_, buffer, std::min(sizeof buffer, n - out.size()));
            if (got == 0) {
                why = Result::Closed;
                break;
            }
            if (got > 0) out.insert(out.end(), buffer, buffer + got);
            if (got < 0 && !IsTimeout(platform::LastSocketError())) {
                why = Result::Closed;  // reset by the server
                break;
            }
        }
        if (result != nullptr) *result = why;
        return out;
    }

    // One Modbus TCP response: the MBAP header and the body its length field announces.
    Bytes ReceiveResponse(int timeoutMs = 3000) {
        Bytes frame = Receive(6, timeoutMs);
        if (frame.size() < 6) return frame;
        const Bytes body = Receive((static_cast<size_t>(frame[4]) << 8) | frame[5], timeoutMs);
        frame.insert(frame.end(), body.begin(), body.end());
        return frame;
    }

    // What happens within timeoutMs: a byte comes, nothing comes, or the server closes.
    Result Await(int timeoutMs) {
        Result result;
        Receive(1, timeoutMs, &result);
        return result;
    }

    Bytes Exchange(const Bytes& request, int timeoutMs = 3000) {
        if (!Send(request)) return {};
        return ReceiveResponse(timeoutMs);
    }

private:
    static bool IsTimeout(int error) {
#if defined(_WIN32)
        return error == WSAETIMEDOUT || error == WSAEWOULDBLOCK;
#else
        return error == EAGAIN || error == EWOULDBLOCK;
#endif
    }

    SOCKET socket_ = INVALID_SOCKET;
};

inline ConnectionConfig TcpSlaveConfig(uint16_t port = 0, uint8_t unitId = 1) {
    ConnectionConfig config;
    config.transport = 0;
    config.role = 1;
    config.port = port;
    config.unitId = unitId;
    return config;
}

inline ConnectionConfig RtuSlaveConfig(const std::string& device, uint8_t unitId = 1) {
    ConnectionConfig config;
    config.transport = 1;
    config.role = 1;
    config.serialPort = device;
    config.baudRate = 19200;
    config.unitId = unitId;
    return config;
}

// A port that was free a moment ago (for the tests that must name their port in advance).
inline uint16_t FreePort() {
    const SOCKET s = platform::TcpSocket();
    platform::BindAny(s, 0);
    const uint16_t port = platform::LocalPort(s);
    platform::CloseSocket(s);
    return port;
}

}  // namespace slavetest
