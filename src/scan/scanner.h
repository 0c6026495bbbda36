#pragma once
// The scanner: which unit ids answer on a connection, and which addresses of one device's table
// can be read. It probes through the master operations of a ModbusClient (so every probe is a
// normal transaction with its log lines and trace frame), counts the requests, keeps the
// connection across probes and, over a socket, makes it again once per probe when the peer closed
// it. It runs on the caller's thread; the caller can stop it between probes and is told the
// progress a few times a second at most.
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "protocol/modbus_client.h"

namespace scan {

// What one probe (one read request) came back with.
struct ProbeAnswer {
    enum class Kind { Values, Exception, Silent, ConnectionFailed };
    Kind kind = Kind::Silent;
    uint8_t exceptionCode = 0;
    std::vector<uint16_t> values;  // registers, or bits as 0/1
};

// The connection the scanner probes through.
class Prober {
public:
    // `connectionLog` receives the connection's lines outside of probes (connect, reconnect,
    // disconnect); `probeLog` the lines a probe makes (TX/RX, failures, exceptions); either may be
    // empty to drop them.
    Prober(ModbusClient& client, const ConnectionConfig& config, uint32_t timeoutMs,
           ModbusClient::LogCallback connectionLog, ModbusClient::LogCallback probeLog);
    ~Prober();
    Prober(const Prober&) = delete;
    Prober& operator=(const Prober&) = delete;

    // Connects and sets the probe time-out; false when the connection could not be made.
    bool Connect();
    // Closes the connection ("Disconnected." goes to the connection log).
    void Disconnect();
    // One read of `count` registers (FC03/FC04) or bits (FC01/FC02). A peer that closed the
    // connection is reconnected and the read tried again, once; ConnectionFailed when that
    // reconnect fails.
    ProbeAnswer Read(uint8_t unit, uint8_t functionCode, uint16_t address, uint16_t count);
    uint32_t Requests() const { return requests_; }

private:
    ProbeAnswer ReadOnce(uint8_t unit, uint8_t functionCode, uint16_t address, uint16_t count);
    bool Reconnect(uint8_t unit);

    ModbusClient& client_;
    ConnectionConfig config_;
    uint32_t timeoutMs_;
    ModbusClient::LogCallback connectionLog_;
    ModbusClient::LogCallback probeLog_;
    bool inProbe_ = false;
    uint32_t requests_ = 0;
};

struct ScanProgress {
    uint32_t done = 0;   // ids probed, or addresses settled
    uint32_t total = 0;  // ids, or addresses, to scan
    uint32_t found = 0;  // ids that exist (answering, exception), or readable ranges so far
    uint32_t requests = 0;
};

struct ScanControl {
    std::function<bool()> stopRequested;                    // looked at between probes
    std::function<void(const ScanProgress&)> onProgress;    // at most every progressIntervalMs
    uint32_t progressIntervalMs = 250;
};

// ---- unit ids ----

enum class UnitStatus { Answering, Exception, NoDevice, Silent };
const char* UnitStatusName(UnitStatus status);  // "answering", "exception", "no-device", "silent"

struct UnitResult {
    uint8_t unit = 0;
    UnitStatus status = UnitStatus::Silent;
    uint8_t exceptionCode = 0;  // for Exception and NoDevice
    std::vector<uint16_t> values;
};

struct UnitScanOptions {
    uint8_t firstUnit = 1;
    uint8_t lastUnit = 247;
    uint8_t functionCode = 3;
    uint16_t address = 0;
    uint16_t count = 1;
};

struct ScanOutcome {
    uint32_t requests = 0;
    double seconds = 0.0;
    bool interrupted = false;     // stopped on request before the end
    bool connectionLost = false;  // the connection went and could not be made again
};

struct UnitScanResult : ScanOutcome {
    std::vector<UnitResult> units;  // every probed id, in order
};

// Exception 0x0A (gateway path unavailable) and 0x0B (gateway target failed to respond) mean that
// nothing is behind the gateway at that id; any other exception comes from a device that exists.
UnitStatus StatusForAnswer(const ProbeAnswer& answer);

UnitScanResult ScanUnits(Prober& prober, const UnitScanOptions& options, const ScanControl& control);

// ---- register maps ----

struct RegisterRange {
    uint16_t first = 0;
    uint16_t last = 0;
    uint32_t Count() const { return static_cast<uint32_t>(last) - first + 1; }
};

struct RegisterScanOptions {
    uint8_t unit = 1;
    uint8_t functionCode = 3;
    uint16_t from = 0;
    uint16_t to = 0;
};

struct RegisterScanResult : ScanOutcome {
    std::vector<RegisterRange> ranges;  // readable addresses, merged, in order
};

// The largest block one read asks for: 125 registers, 2000 bits.
uint16_t MaxBlock(uint8_t functionCode);

// Reads FROM..TO in blocks of MaxBlock; a block refused with exception 2 is split in halves until
// the refused addresses are isolated. A few refused addresses in a large readable range cost
// little more than the blocks; each refused address costs about two requests, so a table that
// refuses almost everything costs about as much as reading it address by address. A block that
// gets no answer, or another exception, is taken as not readable without splitting it.
RegisterScanResult ScanRegisters(Prober& prober, const RegisterScanOptions& options, const ScanControl& control);

// ---- output ----

// The stable formats: "table" (for people: only the ids with a device, answering or exception, and
// a summary below that counts the others), "csv" (header
// unit;status;exception;values or first;last;count, one row per id or range) and "json".
std::string FormatUnits(const UnitScanResult& result, const std::string& format);
std::string FormatRegisters(const RegisterScanResult& result, const RegisterScanOptions& options,
                            const std::string& format);
// "247 requests in 12.4 s"
std::string RequestsAndTime(const ScanOutcome& outcome);

}  // namespace scan
