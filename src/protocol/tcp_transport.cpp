// Modbus TCP: one send of the whole request, exact-length receives of the MBAP header and body.
#include <algorithm>

#include "common/localizer.h"
#include "protocol/modbus_client.h"

Modbus::Bytes ModbusClient::BuildTcpRequest(uint8_t unitId, uint8_t functionCode, const Modbus::Bytes& data) {
    // Post-increment: the first request carries id 0. Only the low 16 bits go on the wire.
    const uint32_t transactionId = transactionCounter++;
    return BuildTcpFrame(static_cast<uint16_t>(transactionId & 0xFFFF), unitId, functionCode, data);
}

bool ModbusClient::TcpSend(SOCKET s, const uint8_t* data, size_t length) {
    // A partial send is not continued; the 3000 ms send time-out makes one call enough in practice.
    if (platform::Send(s, data, length) < 0) {
        lastFailure = TransportFailure::ConnectionLost;
        Log(Text("TCP send error: ", "TCP send Fehler: ") + std::to_string(platform::LastSocketError()));
        return false;
    }
    LogFrame("TX: ", data, length);
    return true;
}

bool ModbusClient::TcpRecvExact(SOCKET s, Modbus::Bytes& out, size_t n) {
    out.resize(n);
    size_t received = 0;
    while (received < n) {
        const int got = platform::Recv(s, out.data() + received, n - received);
        if (got < 1) {
            Log(Text("TCP recv error: ", "TCP recv Fehler: ") + std::to_string(platform::LastSocketError()));
            out.resize(received);
            return false;
        }
        received += static_cast<size_t>(got);
    }
    LogFrame("RX: ", out.data(), out.size());
    return true;
}

bool ModbusClient::TcpReceiveQuiet(SOCKET s, TcpReceiveBuffer& buffer, Modbus::Bytes& out, size_t n) {
    size_t missing = n;
    while (missing > 0) {
        if (buffer.begin == buffer.end) {
            buffer.begin = buffer.end = 0;
            const int got = platform::Recv(s, buffer.data, sizeof buffer.data);
            if (got < 1) {
                const int error = platform::LastSocketError();
                lastFailure = got == 0 || !platform::IsTimeoutError(error) ? TransportFailure::ConnectionLost
                                                                             : TransportFailure::Timeout;
                Log(Text("TCP recv error: ", "TCP recv Fehler: ") + std::to_string(error));
                return false;
            }
            buffer.end = static_cast<size_t>(got);
        }
        const size_t take = std::min(missing, buffer.end - buffer.begin);
        out.insert(out.end(), buffer.data + buffer.begin, buffer.data + buffer.begin + take);
        buffer.begin += take;
        missing -= take;
    }
    return true;
}

bool ModbusClient::TcpReceive(SOCKET s, TcpReceiveBuffer& buffer, Modbus::Bytes& out, size_t n) {
    const size_t first = out.size();
    if (!TcpReceiveQuiet(s, buffer, out, n)) return false;
    LogFrame("RX: ", out.data() + first, n);
    return true;
}

bool ModbusClient::TcpTransaction(const Modbus::Bytes& request, Modbus::Bytes& response) {
    SOCKET s = sockets[0];
    if (!TcpSend(s, request.data(), request.size())) return false;
    // Header and body are received (and logged) as two pieces, as the MBAP length frames them, but
    // usually with a single recv between them.
    Modbus::Bytes frame;
    frame.reserve(6 + 256);
    if (!TcpReceive(s, masterReceive, frame, 6)) return false;
    const size_t length = (static_cast<size_t>(frame[4]) << 8) | frame[5];
    if (!TcpReceive(s, masterReceive, frame, length)) return false;

    // Devices in the field send FC03/FC04 responses whose MBAP length is too small for the byte
    // count they carry; the rest is still on the stream. Read it and mend the length field.
    if (length >= 3 && (frame[7] == 3 || frame[7] == 4)) {
        const size_t expected = static_cast<size_t>(frame[8]) + 3;
        if (length < expected) {
            if (!TcpReceive(s, masterReceive, frame, expected - length)) return false;
            frame[4] = static_cast<uint8_t>(expected >> 8);
            frame[5] = static_cast<uint8_t>(expected & 0xFF);
        }
    }
    response = std::move(frame);
    return true;
}
