// CSV and PCAP files of the bus monitor, flushed frame by frame.
#include "monitor/capture_files.h"

#include <vector>

#include "monitor/monitor_text.h"
#include "platform/file_io.h"
#include "protocol/pcap_format.h"

namespace Modbus {
namespace {

constexpr uint8_t kMasterAddress[4] = {192, 168, 1, 1};
constexpr uint8_t kDeviceAddress[4] = {192, 168, 1, 100};
constexpr uint16_t kMasterPort = 5000;

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
    AppendPcapGlobalHeader(header);
    return file_.Write(header.data(), header.size());
}

bool PcapCapture::Write(const MonitorRecord& record) {
    const bool back = record.direction == FrameDirection::Response;
    const std::vector<uint8_t>& modbus = record.bytes;
    const uint8_t(&source)[4] = back ? kDeviceAddress : kMasterAddress;
    const uint8_t(&destination)[4] = back ? kMasterAddress : kDeviceAddress;
    const PcapPacket packet{.seconds = static_cast<uint32_t>(record.wallUs / 1000000),
                            .microseconds = static_cast<uint32_t>(record.wallUs % 1000000),
                            .ipId = static_cast<uint16_t>(index_ & 0xFFFF),
                            .sourceAddress = {source[0], source[1], source[2], source[3]},
                            .destinationAddress = {destination[0], destination[1], destination[2], destination[3]},
                            .sourcePort = back ? kMonitorPcapDevicePort : kMasterPort,
                            .destinationPort = back ? kMasterPort : kMonitorPcapDevicePort,
                            .sequence = nextSequence_[back ? 1 : 0],
                            .acknowledgement = nextSequence_[back ? 0 : 1]};
    std::vector<uint8_t> out;
    out.reserve(kPcapRecordHeaderSize + kPcapPacketHeadersSize + modbus.size());
    AppendPcapRecord(out, packet, modbus);

    nextSequence_[back ? 1 : 0] += static_cast<uint32_t>(modbus.size());
    ++index_;
    return file_.Write(out.data(), out.size());
}

}  // namespace Modbus
