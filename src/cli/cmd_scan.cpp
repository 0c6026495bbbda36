// kestrel-cli scan: which unit ids answer, or which addresses of one device can be read. The
// scanning is src/scan's; this file reads the options and prints.
#include <cstdio>
#include <string>
#include <vector>

#include "cli/command.h"
#include "cli/connection_args.h"
#include "cli/output.h"
#include "scan/scanner.h"

namespace cli {
namespace {

struct ScanRequest {
    ConnectionConfig connection;
    bool registers = false;
    scan::UnitScanOptions units;
    scan::RegisterScanOptions map;
    uint32_t timeoutMs = 0;
    std::string format = "table";
    bool verbose = false;
};

// "A-B" with A <= B, each within [min, max].
std::pair<uint32_t, uint32_t> ParseSpan(const std::string& text, const std::string& flag, uint32_t min, uint32_t max) {
    const size_t dash = text.find('-');
    if (dash == std::string::npos) throw UsageError(flag + " must look like FROM-TO, not '" + text + "'");
    const auto first = static_cast<uint32_t>(ParseUnsigned(text.substr(0, dash), flag + " FROM", min, max));
    const auto last = static_cast<uint32_t>(ParseUnsigned(text.substr(dash + 1), flag + " TO", min, max));
    if (first > last) throw UsageError(flag + " FROM must not be above TO in '" + text + "'");
    return {first, last};
}

// The default wait for an answer: short on a TCP network; a serial line (also the one behind an
// RTU-over-TCP gateway) is slower.
uint32_t DefaultTimeout(const ConnectionConfig& connection) {
    return connection.transport == kTransportTcp ? 300 : 1000;
}

ScanRequest TakeScanRequest(std::vector<std::string>& args) {
    ScanRequest r;
    r.connection = TakeMasterConnection(args);
    const auto units = TakeOption(args, "--units");
    const auto unit = TakeOption(args, "--unit");
    const auto fc = TakeOption(args, "--fc");
    const auto address = TakeOption(args, "--address");
    const auto count = TakeOption(args, "--count");
    const auto registers = TakeOption(args, "--registers");
    const auto timeout = TakeOption(args, "--timeout");
    const auto format = TakeOption(args, "--format");
    r.verbose = TakeFlag(args, "--verbose");
    RejectUnknownOptions(args);
    if (!args.empty()) throw UsageError("unexpected argument '" + args.front() + "'");

    const uint8_t functionCode = fc ? static_cast<uint8_t>(ParseUnsigned(*fc, "--fc", 0, 255)) : 3;
    if (functionCode < 1 || functionCode > 4) throw UsageError("--fc must be 1, 2, 3 or 4, not '" + *fc + "'");
    if (format) {
        if (*format != "table" && *format != "csv" && *format != "json") {
            throw UsageError("--format must be table, csv or json, not '" + *format + "'");
        }
        r.format = *format;
    }
    r.timeoutMs = timeout ? static_cast<uint32_t>(ParseUnsigned(*timeout, "--timeout", 1, 60000))
                          : DefaultTimeout(r.connection);

    r.registers = registers.has_value();
    if (r.registers) {
        if (units) throw UsageError("--units scans unit ids; a register scan takes --unit N");
        if (address || count) throw UsageError("--address and --count belong to the unit-id scan, not to --registers");
        const auto [from, to] = ParseSpan(*registers, "--registers", 0, 65535);
        r.map.from = static_cast<uint16_t>(from);
        r.map.to = static_cast<uint16_t>(to);
        r.map.functionCode = functionCode;
        if (unit) r.map.unit = static_cast<uint8_t>(ParseUnsigned(*unit, "--unit", 0, 255));
        return r;
    }
    if (unit) throw UsageError("--unit belongs to --registers; the unit-id scan takes --units A-B");
    if (units) {
        const auto [first, last] = ParseSpan(*units, "--units", 0, 255);
        r.units.firstUnit = static_cast<uint8_t>(first);
        r.units.lastUnit = static_cast<uint8_t>(last);
    }
    r.units.functionCode = functionCode;
    if (address) r.units.address = static_cast<uint16_t>(ParseUnsigned(*address, "--address", 0, 65535));
    if (count) {
        r.units.count = static_cast<uint16_t>(ParseUnsigned(*count, "--count", 1, scan::MaxBlock(functionCode)));
    }
    return r;
}

void PrintProgress(const scan::ScanProgress& p, bool registers) {
    if (registers) {
        std::fprintf(stderr, "scan: %u/%u addresses, %u ranges, %u requests\n", p.done, p.total, p.found, p.requests);
    } else {
        std::fprintf(stderr, "scan: %u/%u ids, %u found\n", p.done, p.total, p.found);
    }
}

// What ended a scan early, on stderr; the results found so far are printed all the same.
void ReportEnd(const scan::ScanOutcome& outcome) {
    if (outcome.interrupted) std::fputs("kestrel-cli: scan interrupted; the results so far follow\n", stderr);
    if (outcome.connectionLost) {
        std::fputs("kestrel-cli: the connection was lost and could not be made again; the results so far follow\n",
                   stderr);
    }
    std::fprintf(stderr, "scan: %s\n", scan::RequestsAndTime(outcome).c_str());
}

int RunScan(std::vector<std::string>& args) {
    const ScanRequest r = TakeScanRequest(args);
    InstallStopSignals();
    const auto toStderr = [](const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); };
    ModbusClient client;
    scan::Prober prober(client, r.connection, r.timeoutMs, toStderr,
                        r.verbose ? ModbusClient::LogCallback(toStderr) : ModbusClient::LogCallback());
    if (!prober.Connect()) return 1;

    scan::ScanControl control;
    control.stopRequested = [] { return StopRequested(); };
    control.onProgress = [&r](const scan::ScanProgress& p) { PrintProgress(p, r.registers); };
    std::string text;
    scan::ScanOutcome outcome;
    if (r.registers) {
        const scan::RegisterScanResult result = scan::ScanRegisters(prober, r.map, control);
        text = scan::FormatRegisters(result, r.map, r.format);
        outcome = result;
    } else {
        const scan::UnitScanResult result = scan::ScanUnits(prober, r.units, control);
        text = scan::FormatUnits(result, r.format);
        outcome = result;
    }
    prober.Disconnect();
    ReportEnd(outcome);
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
    return outcome.connectionLost ? 1 : 0;
}

}  // namespace

// What `kestrel-cli scan --help` prints after the usage (and the manual page shows).
constexpr char kScanHelp[] =
    "Finds which unit ids answer (one read each), or which addresses of one unit id's table can be read\n"
    "(--registers). Each id is answering (with its values), exception (a device that refuses the read),\n"
    "no-device (exception 10 or 11 from a gateway) or silent (no answer in time). The results go to stdout;\n"
    "progress, the request count and the time to stderr. Ctrl-C prints what was found so far (exit 0).\n"
    "\n"
    "Options:\n"
    KESTREL_CLI_CONNECTION_HELP
    "  --units A-B            the unit ids to probe, 0 to 255; default 1-247\n"
    "  --fc 1|2|3|4           the table read: 1 coils, 2 inputs, 3 holding, 4 input registers; default 3\n"
    "  --address A            the address each unit-id probe reads; default 0\n"
    "  --count N              registers or bits each unit-id probe reads, up to 125 (2000 bits); default 1\n"
    "  --registers FROM-TO    find the readable address ranges of --unit instead of scanning unit ids\n"
    "  --unit N               the unit id of --registers, 0 to 255; default 1\n"
    "  --timeout MS           wait per request; default 300 over TCP, 1000 over RTU and RTU over TCP\n"
    "  --format F             table (the ids with a device), csv or json (every id probed); default table\n"
    "  --verbose              also every request's TX/RX and failure lines on stderr\n"
    "Example:\n"
    "  kestrel-cli scan --rtu-over-tcp 192.168.1.50:4001 --units 1-32 --format csv\n"
    "  kestrel-cli scan --tcp 192.168.1.10 --unit 1 --registers 0-9999 --format json\n";

KESTREL_CLI_COMMAND(scan, "scan",
                    "  kestrel-cli [--lang en|de] scan  CONN [--units A-B | --unit N --registers FROM-TO] [--fc 1|2|3|4]\n"
                    "              [--address A] [--count N] [--timeout MS] [--format table|csv|json] [--verbose]\n",
                    kScanHelp, RunScan);

}  // namespace cli
