#pragma once
// The trace of master transactions: one TraceFrame per request/response exchange, kept in one
// process-wide log that the Diagnostics page lists, that yields the communication statistics and
// that is written out as a classic libpcap capture a network analyser opens as Modbus/TCP.
//
// Who touches it: the connection object appends a frame at the end of every master transaction, on
// whatever thread ran it (the UI thread for single reads and writes, the poll thread); the UI thread
// copies, clears, counts and exports. One mutex serialises all of them (and guards the callback
// slot). The trace callback is invoked after the append, outside that mutex, on the producing
// thread; the main window's handler only posts a refresh message.
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace Modbus {

struct TraceFrame {
    int64_t timestamp = 0;  // time of the request, milliseconds since 1970-01-01 UTC
    std::string text;       // the peer as configured: "192.168.1.10:502", or the serial port name
    uint16_t sequence = 0;  // running number of traced transactions in this process (low 16 bits)
    uint16_t peerPort = 0;  // TCP port of the peer; 0 on a serial connection
    uint32_t peerAddress = 0;  // IPv4 address of the peer, 192.168.1.10 = 0xC0A8010A; 0 on serial
    std::vector<uint8_t> request;   // the ADU as sent
    std::vector<uint8_t> response;  // the ADU as received (empty when none)
    int64_t latencyMs = 0;          // request to response, milliseconds (truncated)
    bool isException = false;       // the response was a Modbus exception
    bool isRtu = false;             // RTU framing: unit id first, CRC last (else MBAP in front)
    bool isTimeout = false;         // no (complete) response
    bool isCrcError = false;        // an RTU response whose CRC does not match
};

struct CommStatistics {
    uint32_t total = 0;
    uint32_t ok = 0;
    uint32_t timeouts = 0;
    uint32_t crcErrors = 0;
    uint32_t exceptions = 0;
    double avgLatencyMs = 0.0;
    double minLatencyMs = 0.0;
    double maxLatencyMs = 0.0;
};

using TraceCallback = std::function<void(const TraceFrame&)>;

// The unit id of the request: byte 6 behind the MBAP header, byte 0 of an RTU frame; 0 when the
// request is too short to hold it.
uint8_t TraceUnitId(const TraceFrame& frame);
// "192.168.1.10:502" from the numeric peer fields; the serial port name (the text) on RTU.
std::string TraceAddressText(const TraceFrame& frame);
// Dotted IPv4 text to 0xC0A8010A; 0 unless the text is four decimal parts of 0..255.
uint32_t ParseIpv4Address(const std::string& text);

}  // namespace Modbus

class TraceLog {
public:
    // The newest 10,000 frames are kept: some 250 heap bytes per FC03 frame, so about 2.5 MB when
    // full, and a list the Diagnostics page can still rebuild on every refresh (copying it takes
    // about 1.5 ms) without stalling the UI thread. Without a cap a poll running for a day would
    // hold millions of frames and every refresh would copy all of them.
    static constexpr size_t kDefaultCapacity = 10000;

    explicit TraceLog(size_t capacity = kDefaultCapacity);
    TraceLog(const TraceLog&) = delete;
    TraceLog& operator=(const TraceLog&) = delete;

    // Push at the back; when the log is full the oldest frame goes first.
    void Append(const Modbus::TraceFrame& frame);
    void Append(Modbus::TraceFrame&& frame);
    void Clear();
    // A copy taken under the mutex, so the view is filled without holding it.
    std::deque<Modbus::TraceFrame> Snapshot() const;
    Modbus::CommStatistics ComputeStatistics() const;

    // The whole capture file. The device address and port are those of the current connection
    // settings (SetPcapEndpoint); the explicit form takes them as arguments.
    std::vector<uint8_t> BuildPcap() const;
    std::vector<uint8_t> BuildPcap(const std::string& deviceIp, uint16_t devicePort) const;
    void SetPcapEndpoint(const std::string& deviceIp, uint16_t devicePort);

    size_t Size() const;
    size_t Capacity() const;
    // A smaller capacity drops the oldest frames at once; 0 is taken as 1.
    void SetCapacity(size_t capacity);

    // The trace callback, invoked by Record after the append; an empty callable removes it.
    void SetCallback(Modbus::TraceCallback callback);
    // Append, then invoke the callback (if one is set) on the calling thread, outside the log's mutex.
    void Record(Modbus::TraceFrame frame);

private:
    void TrimLocked();

    mutable std::mutex mutex_;
    std::deque<Modbus::TraceFrame> frames_;
    size_t capacity_;
    std::string pcapIp_;
    uint16_t pcapPort_ = 502;
    Modbus::TraceCallback callback_;
};

// The process-wide trace log: constructed on first use, destroyed at exit.
TraceLog& GlobalTraceLog();

// The process-wide trace callback lives in the global log; these forward to it.
void SetTraceCallback(Modbus::TraceCallback callback);
// Appends to the global log and invokes the trace callback.
void RecordTrace(Modbus::TraceFrame frame);
// Running number for TraceFrame::sequence, shared by every connection of the process (from 1).
uint16_t NextTraceSequence();

// The PCAP file of the given frames (the layout the log writes), for callers holding a copy.
std::vector<uint8_t> BuildPcapFile(const std::deque<Modbus::TraceFrame>& frames, const std::string& deviceIp,
                                   uint16_t devicePort);
// The statistics of the given frames.
Modbus::CommStatistics ComputeCommStatistics(const std::deque<Modbus::TraceFrame>& frames);
