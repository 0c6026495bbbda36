#pragma once
// The listen-only RTU bus monitor: opens a serial port as the RTU transports do, never writes to
// it, and turns what it hears into frames (RtuFrameSplitter), pairs them (BusPairing) and hands
// each record to the outputs in capture order: a line, a CSV row, a PCAP record. At the end it
// gives the statistics table.
//
// One thread: the caller's. It reads with a short wait (SerialReadAvailable, 5 ms), stamps each
// read with the monotonic clock, and asks the splitter for decided frames after every read and
// every empty wait, so a broken frame at the end of a burst is decided once the line stays quiet.
// Wall-clock times are the start's wall clock plus the monotonic time since.
#include <cstdint>
#include <functional>
#include <string>

namespace Modbus {

struct MonitorOptions {
    std::string device;
    uint32_t baud = 9600;
    uint8_t dataBits = 8;
    uint8_t stopBits = 1;
    char parity = 'N';
    std::string pcapPath;  // empty: no capture
    std::string csvPath;   // empty: no CSV
    uint64_t durationSeconds = 0;  // 0: until stopped
    bool quiet = false;    // no frame lines, only the statistics
};

struct MonitorOutput {
    std::function<void(const std::string&)> line;      // stdout: frame lines and the statistics
    std::function<void(const std::string&)> message;   // stderr: progress and failures
};

// Listens until `stopRequested` returns true, the duration has passed, or the port fails. 0 when
// it ended as asked; 1 when the port or a file could not be opened, or the line failed (the
// statistics are still given).
int RunBusMonitor(const MonitorOptions& options, const std::function<bool()>& stopRequested,
                  const MonitorOutput& output);

}  // namespace Modbus
