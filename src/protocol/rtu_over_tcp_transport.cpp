// Modbus RTU over TCP, as serial-to-Ethernet gateways forward it: the RTU frame (unit id, PDU,
// CRC-16) sent whole on a TCP socket, with no MBAP header in front.
//
// The end of a response. On the serial line a frame ends with a silence of a few character times;
// over TCP that silence means nothing (the gateway and the network cut and join segments as they
// like), so the end is found from the frame itself:
//   - an exception (function code with bit 7 set): 5 bytes (unit, fc, code, CRC);
//   - FC01-FC04 and FC23: unit, fc, byte count, then that many bytes and the CRC;
//   - FC05, FC06, FC15, FC16: 8 bytes (unit, fc, two words, CRC);
//   - FC24: unit, fc, a 16-bit byte count, then that many bytes and the CRC.
// The complete frame is then checked against its CRC (a gateway may pass on a frame corrupted on
// its serial side); a mismatch fails the transaction. Nothing else is compared with the request.
#include "common/localizer.h"
#include "protocol/modbus_client.h"

namespace {

// How many bytes follow the function code, learnt from the bytes read so far (`frame` holds at
// least unit id and function code). 0 when more header bytes are needed first (`needHeader` says
// how many), -1 for a function code whose length is unknown.
struct FrameLength {
    size_t total = 0;       // the whole frame, CRC included, when known
    size_t needHeader = 0;  // else: read the frame up to this size first
    bool unknown = false;
};

FrameLength ResponseFrameLength(const Modbus::Bytes& frame) {
    const uint8_t fc = frame[1];
    if (fc & 0x80) return {5, 0, false};
    switch (fc) {
        case 0x01:
        case 0x02:
        case 0x03:
        case 0x04:
        case 0x17:
            if (frame.size() < 3) return {0, 3, false};
            return {3 + static_cast<size_t>(frame[2]) + 2, 0, false};
        case 0x05:
        case 0x06:
        case 0x0F:
        case 0x10: return {8, 0, false};
        case 0x18:
            if (frame.size() < 4) return {0, 4, false};
            return {4 + ((static_cast<size_t>(frame[2]) << 8) | frame[3]) + 2, 0, false};
        default: return {0, 0, true};
    }
}

}  // namespace

void ModbusClient::DiscardStaleBytes(SOCKET s, TcpReceiveBuffer& buffer) {
    buffer.begin = buffer.end = 0;
    uint8_t scratch[256];
    // Bounded: a peer that keeps streaming is read for at most 64 chunks here.
    for (int i = 0; i < 64 && platform::RecvWaiting(s, scratch, sizeof scratch) > 0; ++i) {
    }
}

bool ModbusClient::RtuOverTcpTransaction(const Modbus::Bytes& request, Modbus::Bytes& response) {
    const SOCKET s = sockets[0];
    response.clear();
    if (rtuOverTcpStale) {
        DiscardStaleBytes(s, masterReceive);
        rtuOverTcpStale = false;
    }
    if (!TcpSend(s, request.data(), request.size())) return false;

    Modbus::Bytes frame;
    frame.reserve(256 + 5);
    bool complete = TcpReceiveQuiet(s, masterReceive, frame, 2);
    FrameLength length;
    while (complete) {
        length = ResponseFrameLength(frame);
        if (length.unknown || length.total != 0) break;
        complete = TcpReceiveQuiet(s, masterReceive, frame, length.needHeader - frame.size());
    }
    if (complete && length.unknown) {
        Log(Text("RTU over TCP: response with unknown function code 0x",
                 "RTU over TCP: Antwort mit unbekanntem Funktionscode 0x") + HexDump(&frame[1], 1) + ".");
        LogFrame("RX: ", frame.data(), frame.size());
        response = frame;
        rtuOverTcpStale = true;
        return false;
    }
    if (complete) complete = TcpReceiveQuiet(s, masterReceive, frame, length.total - frame.size());
    if (!complete) {
        // Silence or a frame cut short: what came is kept for the trace; the rest, should it come
        // later, must not be taken for the next response.
        if (!frame.empty()) {
            Log(Text("RTU over TCP: incomplete response, ", "RTU over TCP: unvollstaendige Antwort, ") +
                std::to_string(frame.size()) + Text(" bytes received.", " Bytes empfangen."));
            LogFrame("RX: ", frame.data(), frame.size());
        }
        response = std::move(frame);
        rtuOverTcpStale = true;
        return false;
    }
    LogFrame("RX: ", frame.data(), frame.size());
    response = std::move(frame);
    if (!HasValidCrc(response)) {
        lastFailure = TransportFailure::CrcError;
        Log("RTU over TCP CRC error.", "RTU over TCP CRC Fehler.");
        rtuOverTcpStale = true;
        return false;
    }
    return true;
}

void ModbusClient::SetResponseTimeout(uint32_t milliseconds) {
    const SOCKET s = sockets[0].load();
    if (UsesSocket()) {
        if (s != INVALID_SOCKET) platform::SetReceiveTimeout(s, milliseconds);
    } else if (platform::IsValid(serialHandle)) {
        platform::SerialSetReadTimeout(serialHandle, milliseconds);
    }
}
