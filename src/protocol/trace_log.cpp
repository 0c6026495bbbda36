// The trace log, its statistics and the PCAP writer.
#include "protocol/trace_log.h"

#include <atomic>
#include <cstdio>
#include <utility>

#include "protocol/pcap_format.h"

using Modbus::CommStatistics;
using Modbus::TraceFrame;

namespace {

// The device address of the capture: read with "%u.%u.%u.%u"; the parts that do not parse keep
// their value from 192.168.1.100.
void DeviceAddress(const std::string& ip, uint8_t (&address)[4]) {
    unsigned int parts[4] = {192, 168, 1, 100};
    std::sscanf(ip.c_str(), "%u.%u.%u.%u", &parts[0], &parts[1], &parts[2], &parts[3]);
    for (int i = 0; i < 4; ++i) address[i] = static_cast<uint8_t>(parts[i]);
}

constexpr uint16_t kClientPort = 5000;

struct PacketInfo {
    int64_t time;
    uint32_t index;
    uint16_t sourcePort;
    uint16_t destinationPort;
};

// One record around the Modbus bytes. Both directions carry source 192.168.1.1 and the device as
// destination; only the ports swap.
void WriteRecord(std::vector<uint8_t>& out, const std::vector<uint8_t>& modbus, const PacketInfo& info,
                 const uint8_t (&device)[4]) {
    const int64_t seconds = info.time / 1000;
    const int64_t microseconds = (info.time - seconds * 1000) * 1000;
    const Modbus::PcapPacket packet{.seconds = static_cast<uint32_t>(seconds),
                                    .microseconds = static_cast<uint32_t>(microseconds),
                                    .ipId = static_cast<uint16_t>(info.index & 0xFFFF),
                                    .sourceAddress = {192, 168, 1, 1},
                                    .destinationAddress = {device[0], device[1], device[2], device[3]},
                                    .sourcePort = info.sourcePort,
                                    .destinationPort = info.destinationPort,
                                    .sequence = info.index * 100u,
                                    .acknowledgement = 0};
    Modbus::AppendPcapRecord(out, packet, modbus);
}

}  // namespace

namespace Modbus {

uint8_t TraceUnitId(const TraceFrame& frame) {
    const size_t at = frame.isRtu ? 0 : 6;
    return at < frame.request.size() ? frame.request[at] : 0;
}

std::string TraceAddressText(const TraceFrame& frame) {
    if (frame.isRtu) return frame.text;
    const uint32_t a = frame.peerAddress;
    return std::to_string(a >> 24) + "." + std::to_string((a >> 16) & 0xFF) + "." + std::to_string((a >> 8) & 0xFF) +
           "." + std::to_string(a & 0xFF) + ":" + std::to_string(frame.peerPort);
}

uint32_t ParseIpv4Address(const std::string& text) {
    uint32_t address = 0;
    size_t at = 0;
    for (int part = 0; part < 4; ++part) {
        if (part > 0) {
            if (at >= text.size() || text[at] != '.') return 0;
            ++at;
        }
        unsigned value = 0;
        size_t digits = 0;
        while (at < text.size() && text[at] >= '0' && text[at] <= '9' && digits < 4) {
            value = value * 10 + static_cast<unsigned>(text[at] - '0');
            ++at;
            ++digits;
        }
        if (digits == 0 || digits > 3 || value > 255) return 0;
        address = (address << 8) | value;
    }
    return at == text.size() ? address : 0;
}

}  // namespace Modbus

CommStatistics ComputeCommStatistics(const std::deque<TraceFrame>& frames) {
    CommStatistics stats;
    stats.total = static_cast<uint32_t>(frames.size());
    double sum = 0.0;
    size_t samples = 0;
    for (const TraceFrame& frame : frames) {
        // One count per frame, timeout first; an exception response is OK and an exception.
        if (frame.isTimeout) {
            ++stats.timeouts;
        } else if (frame.isCrcError) {
            ++stats.crcErrors;
        } else {
            ++stats.ok;
            if (frame.isException) ++stats.exceptions;
        }
        if (frame.latencyMs > 0) {
            const double latency = static_cast<double>(frame.latencyMs);
            if (samples == 0 || latency < stats.minLatencyMs) stats.minLatencyMs = latency;
            if (samples == 0 || latency > stats.maxLatencyMs) stats.maxLatencyMs = latency;
            sum += latency;
            ++samples;
        }
    }
    if (samples > 0) stats.avgLatencyMs = sum / static_cast<double>(samples);
    return stats;
}

std::vector<uint8_t> BuildPcapFile(const std::deque<TraceFrame>& frames, const std::string& deviceIp,
                                   uint16_t devicePort) {
    uint8_t device[4];
    DeviceAddress(deviceIp, device);

    constexpr size_t kRecordOverhead = Modbus::kPcapRecordHeaderSize + Modbus::kPcapPacketHeadersSize;
    size_t size = Modbus::kPcapGlobalHeaderSize;
    for (const TraceFrame& frame : frames) {
        if (!frame.request.empty()) size += kRecordOverhead + frame.request.size();
        if (!frame.response.empty()) size += kRecordOverhead + frame.response.size();
    }
    std::vector<uint8_t> out;
    out.reserve(size);
    Modbus::AppendPcapGlobalHeader(out);

    uint32_t index = 0;
    for (const TraceFrame& frame : frames) {
        // Both records of one frame share the index.
        if (!frame.request.empty()) {
            WriteRecord(out, frame.request, {frame.timestamp, index, kClientPort, devicePort}, device);
        }
        if (!frame.response.empty()) {
            WriteRecord(out, frame.response, {frame.timestamp + frame.latencyMs, index, devicePort, kClientPort},
                        device);
        }
        ++index;
    }
    return out;
}

TraceLog::TraceLog(size_t capacity) : capacity_(capacity == 0 ? 1 : capacity) {}

void TraceLog::TrimLocked() {
    while (frames_.size() > capacity_) frames_.pop_front();
}

void TraceLog::Append(const TraceFrame& frame) {
    std::lock_guard<std::mutex> lock(mutex_);
    frames_.push_back(frame);
    TrimLocked();
}

void TraceLog::Append(TraceFrame&& frame) {
    std::lock_guard<std::mutex> lock(mutex_);
    frames_.push_back(std::move(frame));
    TrimLocked();
}

void TraceLog::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    frames_.clear();
    frames_.shrink_to_fit();
}

std::deque<TraceFrame> TraceLog::Snapshot() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return frames_;
}

CommStatistics TraceLog::ComputeStatistics() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return ComputeCommStatistics(frames_);
}

std::vector<uint8_t> TraceLog::BuildPcap() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return BuildPcapFile(frames_, pcapIp_, pcapPort_);
}

std::vector<uint8_t> TraceLog::BuildPcap(const std::string& deviceIp, uint16_t devicePort) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return BuildPcapFile(frames_, deviceIp, devicePort);
}

void TraceLog::SetPcapEndpoint(const std::string& deviceIp, uint16_t devicePort) {
    std::lock_guard<std::mutex> lock(mutex_);
    pcapIp_ = deviceIp;
    pcapPort_ = devicePort;
}

size_t TraceLog::Size() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return frames_.size();
}

size_t TraceLog::Capacity() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return capacity_;
}

void TraceLog::SetCapacity(size_t capacity) {
    std::lock_guard<std::mutex> lock(mutex_);
    capacity_ = capacity == 0 ? 1 : capacity;
    TrimLocked();
}

void TraceLog::SetCallback(Modbus::TraceCallback callback) {
    std::lock_guard<std::mutex> lock(mutex_);
    callback_ = std::move(callback);
}

void TraceLog::Record(TraceFrame frame) {
    // One lock for the append and for taking the callback; the callback itself runs after the
    // unlock, so a handler that reads the log (or a slow one) never holds up the window's thread.
    Modbus::TraceCallback callback;
    std::unique_lock<std::mutex> lock(mutex_);
    if (!callback_) {
        frames_.push_back(std::move(frame));
        TrimLocked();
        return;
    }
    callback = callback_;
    frames_.push_back(frame);
    TrimLocked();
    lock.unlock();
    callback(frame);
}

TraceLog& GlobalTraceLog() {
    static TraceLog log;
    return log;
}

void SetTraceCallback(Modbus::TraceCallback callback) { GlobalTraceLog().SetCallback(std::move(callback)); }

void RecordTrace(TraceFrame frame) { GlobalTraceLog().Record(std::move(frame)); }

uint16_t NextTraceSequence() {
    static std::atomic<uint32_t> counter{0};
    return static_cast<uint16_t>(++counter & 0xFFFF);
}
