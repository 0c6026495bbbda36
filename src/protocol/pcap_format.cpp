// The PCAP global header and the synthetic Ethernet/IPv4/TCP records around the Modbus frames.
#include "protocol/pcap_format.h"

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

}  // namespace

void AppendPcapGlobalHeader(std::vector<uint8_t>& out) {
    PutLe32(out, 0xA1B2C3D4);
    PutLe16(out, 2);
    PutLe16(out, 4);
    PutLe32(out, 0);      // this zone
    PutLe32(out, 0);      // significant figures
    PutLe32(out, 65535);  // snap length
    PutLe32(out, 1);      // Ethernet
}

void AppendPcapRecord(std::vector<uint8_t>& out, const PcapPacket& packet, const std::vector<uint8_t>& payload) {
    const auto length = static_cast<uint32_t>(kPcapPacketHeadersSize + payload.size());
    PutLe32(out, packet.seconds);
    PutLe32(out, packet.microseconds);
    PutLe32(out, length);
    PutLe32(out, length);

    // Ethernet: broadcast destination, source 00:00:00:00:00:01, IPv4.
    for (int i = 0; i < 6; ++i) out.push_back(0xFF);
    for (uint8_t b : {0, 0, 0, 0, 0, 1}) out.push_back(b);
    PutBe16(out, 0x0800);

    // IPv4: no options, don't fragment, TTL 64, TCP; the header checksum is left 0.
    out.push_back(0x45);
    out.push_back(0x00);
    PutBe16(out, static_cast<uint16_t>(payload.size() + 40));
    PutBe16(out, packet.ipId);
    PutBe16(out, 0x4000);
    out.push_back(64);
    out.push_back(6);
    PutBe16(out, 0x0000);
    for (uint8_t b : packet.sourceAddress) out.push_back(b);
    for (uint8_t b : packet.destinationAddress) out.push_back(b);

    // TCP: PSH+ACK, five-word header, the checksum is left 0.
    PutBe16(out, packet.sourcePort);
    PutBe16(out, packet.destinationPort);
    PutBe32(out, packet.sequence);
    PutBe32(out, packet.acknowledgement);
    out.push_back(0x50);
    out.push_back(0x18);
    PutBe16(out, 0xFFFF);
    PutBe16(out, 0x0000);
    PutBe16(out, 0x0000);

    out.insert(out.end(), payload.begin(), payload.end());
}

}  // namespace Modbus
