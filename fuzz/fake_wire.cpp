// The fake network, serial and clock backends of the fuzz targets (see fake_wire.h). They
// implement the same platform seam as the real backends, so the core library links against them
// unchanged.
#include "fake_wire.h"

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <iterator>
#include <mutex>
#include <thread>

#include "platform/clock.h"
#include "platform/net.h"
#include "platform/serial.h"
#include "protocol/frame_codec.h"

namespace platform {
struct PosixSerialPort {
    int unused = 0;
};
}  // namespace platform

namespace fakewire {
namespace {

constexpr SOCKET kListenSocket = 100;  // never handed out: TcpSocket gives every socket the same number
constexpr SOCKET kClientSocket = 101;
constexpr SOCKET kMasterSocket = 102;

struct Wire {
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Bytes> chunks;
    AfterData after = AfterData::Closed;
    bool sendFails = false;
    Bytes sent;
    bool listenInterrupted = false;
    bool serialCancelled = false;
    // Set by ParkOtherSerialReaders: the one thread whose serial reads are served.
    bool parkSerialReaders = false;
    std::thread::id serialReader;
    int lastError = 0;
    SOCKET nextSocket = kMasterSocket;
};

// Never destroyed: a server thread may still wait on it while the process exits.
Wire& TheWire() {
    static Wire* wire = new Wire;
    return *wire;
}

thread_local int lastSocketError = 0;

}  // namespace

void Reset(std::vector<Bytes> chunks, AfterData after, bool sendFails) {
    Wire& w = TheWire();
    std::lock_guard<std::mutex> lock(w.mutex);
    w.chunks.assign(std::make_move_iterator(chunks.begin()), std::make_move_iterator(chunks.end()));
    w.after = after;
    w.sendFails = sendFails;
    w.sent.clear();
    w.listenInterrupted = w.serialCancelled = false;
}

Bytes Sent() {
    Wire& w = TheWire();
    std::lock_guard<std::mutex> lock(w.mutex);
    return w.sent;
}

void Release() {
    Wire& w = TheWire();
    std::lock_guard<std::mutex> lock(w.mutex);
    std::deque<Bytes>().swap(w.chunks);
    Bytes().swap(w.sent);
}

void ParkOtherSerialReaders() {
    Wire& w = TheWire();
    std::lock_guard<std::mutex> lock(w.mutex);
    w.parkSerialReaders = true;
    w.serialReader = std::this_thread::get_id();
}

SOCKET AcceptedClient() { return kClientSocket; }

bool Drained() {
    Wire& w = TheWire();
    std::lock_guard<std::mutex> lock(w.mutex);
    return w.chunks.empty();
}

std::vector<Bytes> SplitChunks(const uint8_t* data, size_t size, bool crcFlag) {
    std::vector<Bytes> chunks;
    size_t at = 0;
    while (at < size) {
        const uint8_t lengthByte = data[at++];
        const size_t length = std::min<size_t>(lengthByte & 0x7F, size - at);
        Bytes chunk(data + at, data + at + length);
        at += length;
        if (crcFlag && (lengthByte & 0x80) != 0) {
            const uint16_t crc = Crc16(chunk.data(), chunk.size());
            chunk.push_back(static_cast<uint8_t>(crc & 0xFF));
            chunk.push_back(static_cast<uint8_t>(crc >> 8));
        }
        chunks.push_back(std::move(chunk));
    }
    return chunks;
}

}  // namespace fakewire

using fakewire::TheWire;
using fakewire::Wire;
using fakewire::lastSocketError;

namespace platform {

bool NetStartup() { return true; }
void NetCleanup() {}

SOCKET TcpSocket() { return fakewire::kMasterSocket; }
bool SetReceiveTimeout(SOCKET, uint32_t) { return true; }
bool SetSendTimeout(SOCKET, uint32_t) { return true; }
bool SetNoDelay(SOCKET) { return true; }
bool SetReuseAddress(SOCKET) { return true; }
bool ConnectIpv4(SOCKET, const std::string&, uint16_t) { return true; }
bool BindAny(SOCKET, uint16_t) { return true; }
bool Listen(SOCKET, int) { return true; }
uint16_t LocalPort(SOCKET) { return 502; }

SOCKET Accept(SOCKET, std::string&) {
    // The slave targets serve their sessions themselves: the server thread waits for the stop.
    Wire& w = TheWire();
    std::unique_lock<std::mutex> lock(w.mutex);
    w.changed.wait(lock, [&w] { return w.listenInterrupted; });
    lastSocketError = EBADF;
    return INVALID_SOCKET;
}

int Send(SOCKET, const uint8_t* data, size_t length) {
    Wire& w = TheWire();
    std::lock_guard<std::mutex> lock(w.mutex);
    if (w.sendFails) {
        lastSocketError = EPIPE;
        return -1;
    }
    w.sent.insert(w.sent.end(), data, data + length);
    return static_cast<int>(length);
}

int Recv(SOCKET, uint8_t* data, size_t length) {
    Wire& w = TheWire();
    std::lock_guard<std::mutex> lock(w.mutex);
    while (!w.chunks.empty() && w.chunks.front().empty()) w.chunks.pop_front();
    if (w.chunks.empty()) {
        if (w.after == fakewire::AfterData::Closed) {
            lastSocketError = 0;
            return 0;
        }
        lastSocketError = EAGAIN;
        return -1;
    }
    fakewire::Bytes& front = w.chunks.front();
    const size_t n = std::min(length, front.size());
    std::copy(front.begin(), front.begin() + static_cast<std::ptrdiff_t>(n), data);
    front.erase(front.begin(), front.begin() + static_cast<std::ptrdiff_t>(n));
    return static_cast<int>(n);
}

// Nothing arrives late on the fake wire: the RTU-over-TCP master's discard of stale bytes finds none.
int RecvWaiting(SOCKET, uint8_t*, size_t) { return 0; }

// As the POSIX backend: a receive time-out, or a wait cut short by a signal.
bool IsTimeoutError(int error) { return error == EAGAIN || error == EWOULDBLOCK || error == EINTR; }

void CloseSocket(SOCKET s) { InterruptSocket(s); }

// Only the command line's fault simulator shuts a client down (a dropped answer); the fuzzed
// slaves have no simulator.
void ShutdownSocket(SOCKET) {}

bool InterruptSocket(SOCKET s) {
    if (s == fakewire::kListenSocket || s == fakewire::kMasterSocket) {
        Wire& w = TheWire();
        std::lock_guard<std::mutex> lock(w.mutex);
        w.listenInterrupted = true;
        w.changed.notify_all();
    }
    return false;
}

int LastSocketError() { return lastSocketError; }

SerialHandle InvalidSerialHandle() { return nullptr; }

SerialHandle OpenSerial(const std::string&, uint32_t, uint8_t, uint8_t, char) {
    static PosixSerialPort port;
    return &port;
}

bool SerialWrite(SerialHandle, const uint8_t* data, size_t length, size_t& written) {
    Wire& w = TheWire();
    std::lock_guard<std::mutex> lock(w.mutex);
    written = 0;
    if (w.sendFails) return false;
    w.sent.insert(w.sent.end(), data, data + length);
    written = length;
    return true;
}

// The fake line has no time-outs to change.
void SerialSetReadTimeout(SerialHandle, uint32_t) {}

bool SerialRead(SerialHandle, uint8_t* data, size_t capacity, size_t& received) {
    Wire& w = TheWire();
    std::unique_lock<std::mutex> lock(w.mutex);
    received = 0;
    if (w.parkSerialReaders && std::this_thread::get_id() != w.serialReader) {
        w.changed.wait(lock, [&w] { return w.serialCancelled; });
    }
    if (w.serialCancelled) return false;
    if (w.chunks.empty()) return w.after == fakewire::AfterData::Closed;
    fakewire::Bytes& front = w.chunks.front();
    const size_t n = std::min(capacity, front.size());
    std::copy(front.begin(), front.begin() + static_cast<std::ptrdiff_t>(n), data);
    front.erase(front.begin(), front.begin() + static_cast<std::ptrdiff_t>(n));
    if (front.empty()) w.chunks.pop_front();
    received = n;
    return true;
}

// A purge before the request would drop what the peer is about to send; here the queued chunks
// are what arrives after the request, so the purge leaves them.
void SerialPurge(SerialHandle, bool, bool) {}

void SerialCancel(SerialHandle) {
    Wire& w = TheWire();
    std::lock_guard<std::mutex> lock(w.mutex);
    w.serialCancelled = true;
    w.changed.notify_all();
}

void SerialClose(SerialHandle) {}

int64_t MonotonicMicroseconds() {
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

int64_t UnixTimeMilliseconds() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

void SleepMilliseconds(uint32_t) { std::this_thread::yield(); }

}  // namespace platform
