// Modbus TCP: one send of the whole request, exact-length receives of the MBAP header and body.
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
        Log(Text("TCP send error: ", "TCP send Fehler: ") + std::to_string(platform::LastSocketError()));
        return false;
    }
    Log("TX: " + HexDump(data, length));
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
    Log("RX: " + HexDump(out));
    return true;
}

bool ModbusClient::TcpTransaction(const Modbus::Bytes& request, Modbus::Bytes& response) {
    SOCKET s = sockets[0];
    if (!TcpSend(s, request.data(), request.size())) return false;
    Modbus::Bytes header;
    if (!TcpRecvExact(s, header, 6)) return false;
    const size_t length = (static_cast<size_t>(header[4]) << 8) | header[5];
    Modbus::Bytes body;
    if (!TcpRecvExact(s, body, length)) return false;

    // Devices in the field send FC03/FC04 responses whose MBAP length is too small for the byte
    // count they carry; the rest is still on the stream. Read it and mend the length field.
    if (body.size() >= 3 && (body[1] == 3 || body[1] == 4)) {
        const size_t expected = static_cast<size_t>(body[2]) + 3;
        if (body.size() < expected) {
            Modbus::Bytes rest;
            if (!TcpRecvExact(s, rest, expected - body.size())) return false;
            body.insert(body.end(), rest.begin(), rest.end());
            header[4] = static_cast<uint8_t>(body.size() >> 8);
            header[5] = static_cast<uint8_t>(body.size() & 0xFF);
        }
    }
    response = std::move(header);
    response.insert(response.end(), body.begin(), body.end());
    return true;
}
