// CSV and PCAP files of the bus monitor, flushed frame by frame.
#include "monitor/capture_files.h"

#include <vector>

#include "monitor/monitor_text.h"
#include "platform/file_io.h"

namespace Modbus {
namespace {

void PutLe16(std::vector<uint8_t>& out, uint16_t v) {
    out.push_back(static_cast<uint8_t>(v & 0xFF));
    out.push_back(static_cast<uint8_t>(v >> 8));
}

void PutLe32(std::vector<uint8_t>& out, uint32_t v) {
    for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<uint8_t>((v >> shift) & 0xFF));
}

void PutBe16(std::vector<uint8_t>& out, uint16_t v) {
    out.push_back(static_cast<uint8_t>(v >> 8));
    out.push_back(static_cast<uint8_t>(v & 0xFF));
}

void PutBe32(std::vector<uint8_t>& out, uint32_t v) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>((v >> shift) & 0xFF));
}

constexpr uint8_t kMasterAddress[4] = {192, 168, 1, 1};
constexpr uint8_t kDeviceAddress[4] = {192, 168, 1, 100};
constexpr uint16_t kMasterPort = 5000;
constexpr size_t kPacketHeadersSize = 54;  // Ethernet 14 + IPv4 20 + TCP 20

}  // namespace

CaptureFile::~CaptureFile() {
    if (file_ != nullptr) std::fclose(file_);
}

bool CaptureFile::Create(const std::string& path) {
    file_ = platform::OpenFile(path, "wb");
    return file_ != nullptr;
}

bool CaptureFile::Write(const void* data, size_t length) {
    if (file_ == nullptr) return false;
    if (std::fwrite(data, 1, length, file_) != length || std::fflush(file_) != 0) {
        std::fclose(file_);
        file_ = nullptr;
        return false;
    }
    return true;
}

bool CsvCapture::Create(const std::string& path) {
    if (!file_.Create(path)) return false;
    const std::string header = std::string(kMonitorCsvHeader) + '\n';
    return file_.Write(header.data(), header.size());
}

bool CsvCapture::Write(const MonitorRecord& record) {
    const std::string row = CsvRow(record) + '\n';
    return file_.Write(row.data(), row.size());
}

bool PcapCapture::Create(const std::string& path) {
    if (!file_.Create(path)) return false;
    std::vector<uint8_t> header;
    PutLe32(header, 0xA1B2C3D4);
    PutLe16(header, 2);
    PutLe16(header, 4);
    PutLe32(header, 0);      // this zone
    PutLe32(header, 0);      // significant figures
    PutLe32(header, 65535);  // snap length
    PutLe32(header, 1);      // Ethernet
    return file_.Write(header.data(), header.size());
}

bool PcapCapture::Write(const MonitorRecord& record) {
    const bool back = record.direction == FrameDirection::Response;
    const std::vector<uint8_t>& modbus = record.bytes;
    const auto length = static_cast<uint32_t>(kPacketHeadersSize + modbus.size());
    std::vector<uint8_t> out;
    out.reserve(16 + length);
    PutLe32(out, static_cast<uint32_t>(record.wallUs / 1000000));
    PutLe32(out, static_cast<uint32_t>(record.wallUs % 1000000));
    PutLe32(out, length);
    PutLe32(out, length);

    // Ethernet: broadcast destination, source 00:00:00:00:00:01, IPv4.
    for (int i = 0; i < 6; ++i) out.push_back(0xFF);
    for (uint8_t b : {0, 0, 0, 0, 0, 1}) out.push_back(b);
    PutBe16(out, 0x0800);

    // IPv4: no options, don't fragment, TTL 64, TCP; the header checksum is left 0.
    out.push_back(0x45);
    out.push_back(0x00);
    PutBe16(out, static_cast<uint16_t>(modbus.size() + 40));
    PutBe16(out, static_cast<uint16_t>(index_ & 0xFFFF));
    PutBe16(out, 0x4000);
    out.push_back(64);
    out.push_back(6);
    PutBe16(out, 0x0000);
    for (uint8_t b : back ? kDeviceAddress : kMasterAddress) out.push_back(b);
    for (uint8_t b : back ? kMasterAddress : kDeviceAddress) out.push_back(b);

    // TCP: PSH+ACK, five-word header, the checksum is left 0.
    PutBe16(out, back ? kMonitorPcapDevicePort : kMasterPort);
    PutBe16(out, back ? kMasterPort : kMonitorPcapDevicePort);
    PutBe32(out, nextSequence_[back ? 1 : 0]);
    PutBe32(out, nextSequence_[back ? 0 : 1]);
    out.push_back(0x50);
    out.push_back(0x18);
    PutBe16(out, 0xFFFF);
    PutBe16(out, 0x0000);
    PutBe16(out, 0x0000);
    out.insert(out.end(), modbus.begin(), modbus.end());

    nextSequence_[back ? 1 : 0] += static_cast<uint32_t>(modbus.size());
    ++index_;
    return file_.Write(out.data(), out.size());
}

}  // namespace Modbus
