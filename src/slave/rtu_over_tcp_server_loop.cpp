// The RTU-over-TCP slave, which simulates a serial-to-Ethernet gateway: the TCP slave's listen
// socket, accept loop, one client at a time and 500 ms idle drop, but RTU frames on the socket.
// As on the serial line, a frame's CRC is checked and a frame for another unit id (0 included)
// gets no answer. The end of a request is found from its function code (the rule of the master's
// RTU-over-TCP transport, for requests); a function code whose request length is unknown takes
// the bytes that arrived with it.
#include "protocol/modbus_client.h"

namespace {

// The whole request, CRC included, when the bytes read so far tell it; 0 when more header bytes
// are needed first (`needHeader`), `unknown` for a function code whose length is not known.
struct RequestLength {
    size_t total = 0;
    size_t needHeader = 0;
    bool unknown = false;
};

RequestLength RequestFrameLength(const Modbus::Bytes& frame) {
    switch (frame[1]) {
        case 0x01:
        case 0x02:
        case 0x03:
        case 0x04:
        case 0x05:
        case 0x06: return {8, 0, false};
        case 0x07:
        case 0x0B:
        case 0x0C:
        case 0x11: return {4, 0, false};
        case 0x0F:
        case 0x10:
            if (frame.size() < 7) return {0, 7, false};
            return {7 + static_cast<size_t>(frame[6]) + 2, 0, false};
        case 0x17:
            if (frame.size() < 11) return {0, 11, false};
            return {11 + static_cast<size_t>(frame[10]) + 2, 0, false};
        case 0x18: return {6, 0, false};
        default: return {0, 0, true};
    }
}

}  // namespace

bool ModbusClient::StartRtuOverTcpSlave() {
    // Listening is the TCP slave's; its thread serves RTU frames because of the configured kind.
    return StartTcpSlave();
}

void ModbusClient::ServeRtuOverTcpClient(SOCKET client) {
    TcpReceiveBuffer received;
    Modbus::Bytes frame;
    frame.reserve(300);
    while (running.load()) {
        frame.clear();
        if (!TcpReceiveQuiet(client, received, frame, 2)) return;
        RequestLength length = RequestFrameLength(frame);
        while (length.total == 0 && !length.unknown) {
            if (!TcpReceiveQuiet(client, received, frame, length.needHeader - frame.size())) return;
            length = RequestFrameLength(frame);
        }
        if (length.unknown) {
            // At least unit, function code and CRC, and whatever came with them.
            if (!TcpReceiveQuiet(client, received, frame, 2)) return;
            frame.insert(frame.end(), received.data + received.begin, received.data + received.end);
            received.begin = received.end = 0;
        } else if (!TcpReceiveQuiet(client, received, frame, length.total - frame.size())) {
            return;
        }
        LogFrame("RX: ", frame.data(), frame.size());
        if (!HasValidCrc(frame)) {
            // The stream can no longer be trusted to be in step: what else came is dropped too.
            Log("RTU CRC error.", "RTU CRC Fehler.");
            received.begin = received.end = 0;
            continue;
        }
        if (frame[0] != config.unitId) continue;
        ProcessRequest(frame, client);
    }
}
