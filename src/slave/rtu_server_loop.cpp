// The Modbus RTU slave: the serial port and one server thread that reads frame after frame. The
// end of a frame is the inter-character gap of the serial read time-outs. Disconnect stops it by
// clearing `running` and cancelling the pending read; where a cancel cannot break the read (a
// synchronous read under Wine), the thread ends when the read times out.
#include <string>

#include "platform/clock.h"
#include "protocol/modbus_client.h"

namespace {

// After a failed read (a port that went away fails every read at once) wait a little before the
// next one, so a dead port does not spin the thread and flood the log.
constexpr uint32_t kFailedReadPauseMs = 100;

}  // namespace

bool ModbusClient::StartRtuSlave() {
    Log(Text("Opening ", "Oeffne ") + config.serialPort + " @ " + std::to_string(config.baudRate) + " Baud (Slave) ...");
    serialHandle = OpenSerialPort(config.serialPort, config.baudRate, config.dataBits, config.stopBits, config.parity);
    if (!platform::IsValid(serialHandle)) {
        Log("Could not open serial port.", "Seriellen Port konnte nicht geoeffnet werden.");
        return false;
    }
    running.store(true);
    serverThread = std::thread(&ModbusClient::RtuServerLoop, this);
    return true;
}

void ModbusClient::RtuServerLoop() {
    Log("Slave RTU thread started.", "Slave RTU-Thread gestartet.");
    while (running.load()) {
        const int64_t readStart = platform::MonotonicMicroseconds();
        if (!ServeNextRtuFrame()) {
            // False both for a read that timed out empty (after a second or more) and for a failed
            // one; only a read that failed at once needs the pause.
            const int64_t elapsedMs = (platform::MonotonicMicroseconds() - readStart) / 1000;
            if (running.load() && elapsedMs < kFailedReadPauseMs) platform::SleepMilliseconds(kFailedReadPauseMs);
        }
    }
    Log("Slave RTU thread stopped.", "Slave RTU-Thread beendet.");
}

bool ModbusClient::ServeNextRtuFrame() {
    Modbus::Bytes frame;
    if (!RtuRecv(frame)) return false;
    if (frame.size() < 4) return true;
    if (!HasValidCrc(frame)) {
        Log("RTU CRC error.", "RTU CRC Fehler.");
        return true;
    }
    // Only the own unit id: unlike TCP, the broadcast address 0 is ignored on a serial line.
    if (frame[0] != config.unitId) return true;
    ProcessRequest(frame, INVALID_SOCKET);
    return true;
}
