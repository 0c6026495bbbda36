#pragma once
// The classic libpcap file format as the trace log's export and the bus monitor's capture write it:
// link type Ethernet, each Modbus frame the payload of one synthetic Ethernet/IPv4/TCP packet, so a
// network analyser opens it as a TCP stream. The IPv4 and TCP checksums are left 0.
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Modbus {

inline constexpr size_t kPcapGlobalHeaderSize = 24;
inline constexpr size_t kPcapRecordHeaderSize = 16;
inline constexpr size_t kPcapPacketHeadersSize = 54;  // Ethernet 14 + IPv4 20 + TCP 20

// What differs from one record to the next; everything else of the packet is fixed.
struct PcapPacket {
    uint32_t seconds = 0;
    uint32_t microseconds = 0;
    uint16_t ipId = 0;
    uint8_t sourceAddress[4] = {};
    uint8_t destinationAddress[4] = {};
    uint16_t sourcePort = 0;
    uint16_t destinationPort = 0;
    uint32_t sequence = 0;
    uint32_t acknowledgement = 0;
};

// The 24-byte global header: magic, version 2.4, zone 0, snap length 65535, Ethernet.
void AppendPcapGlobalHeader(std::vector<uint8_t>& out);
// One record: its 16-byte header, then the packet headers and the payload.
void AppendPcapRecord(std::vector<uint8_t>& out, const PcapPacket& packet, const std::vector<uint8_t>& payload);

}  // namespace Modbus
