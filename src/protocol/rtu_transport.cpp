// Modbus RTU on a serial port. The end of a response is found by the driver's read time-outs
// alone (a 50 ms gap, or 1000 ms + 10 ms per byte), never by the function code or byte count.
#include "platform/clock.h"
#include "protocol/modbus_client.h"

bool ModbusClient::RtuSend(const uint8_t* data, size_t length) {
    size_t written = 0;
    if (!platform::SerialWrite(serialHandle, data, length, written) || written != length) {
        Log("RTU send error.", "RTU send Fehler.");
        return false;
    }
    Log("TX: " + HexDump(data, length));
    return true;
}

bool ModbusClient::RtuRecv(Modbus::Bytes& out) {
    out.resize(256);
    size_t received = 0;
    const bool ok = platform::SerialRead(serialHandle, out.data(), out.size(), received);
    out.resize(received);
    if (!ok) {
        Log("RTU recv error.", "RTU recv Fehler.");
        return false;
    }
    if (received == 0) return false;  // a silent device; the operation logs its own failure text
    Log("RX: " + HexDump(out));
    return true;
}

bool ModbusClient::RtuTransaction(const Modbus::Bytes& request, Modbus::Bytes& response) {
    platform::SerialPurge(serialHandle, true, false);
    if (!RtuSend(request.data(), request.size())) return false;
    platform::SleepMilliseconds(50);
    return RtuRecv(response);
}
