#pragma once
// The files a bus monitor writes while it listens: a CSV file of its rows and a PCAP capture. Each
// frame is written and flushed as it is captured, so a capture survives a kill.
//
// The PCAP is a classic libpcap file (link type Ethernet) like the trace log's export: every RTU
// frame, unit id and CRC included, is the payload of a synthetic TCP packet between a master
// 192.168.1.1 port 5000 and a device 192.168.1.100 port 502, requests towards the device and
// responses (and frames of unknown direction as requests) back; the sequence numbers run on per
// direction so an analyser sees one clean stream. Wireshark decodes it as Modbus RTU with
// `-d tcp.port==502,mbrtu`. Record times are the capture times in microseconds.
#include <cstdint>
#include <cstdio>
#include <string>

#include "monitor/bus_pairing.h"

namespace Modbus {

inline constexpr uint16_t kMonitorPcapDevicePort = 502;

class CaptureFile {
public:
    CaptureFile() = default;
    ~CaptureFile();
    CaptureFile(const CaptureFile&) = delete;
    CaptureFile& operator=(const CaptureFile&) = delete;

    // Creates (or empties) the file; false when it cannot be written.
    bool Create(const std::string& path);
    bool IsOpen() const { return file_ != nullptr; }
    // Writes and flushes; false once a write failed.
    bool Write(const void* data, size_t length);

private:
    std::FILE* file_ = nullptr;
};

class CsvCapture {
public:
    // The header goes in at once.
    bool Create(const std::string& path);
    bool Write(const MonitorRecord& record);

private:
    CaptureFile file_;
};

class PcapCapture {
public:
    // The global header goes in at once.
    bool Create(const std::string& path);
    bool Write(const MonitorRecord& record);

private:
    CaptureFile file_;
    uint32_t index_ = 0;
    uint32_t nextSequence_[2] = {1, 1};  // per direction: towards the device, back
};

}  // namespace Modbus
