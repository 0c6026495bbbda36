// kestrel-cli monitor: listens to an RTU line without ever writing to it, printing one line per
// frame it recovers, optionally writing CSV and PCAP files, and the statistics at the end (Ctrl-C,
// SIGTERM or --duration). The work is in src/monitor.
#include <string>
#include <vector>

#include "cli/command.h"
#include "cli/connection_args.h"
#include "cli/output.h"
#include "monitor/bus_monitor.h"

namespace cli {
namespace {

Modbus::MonitorOptions TakeMonitorOptions(std::vector<std::string>& args) {
    Modbus::MonitorOptions options;
    const auto device = TakeOption(args, "--rtu");
    if (!device) throw UsageError("monitor needs --rtu DEVICE");
    ConnectionConfig line;
    TakeSerialLineOptions(args, line);
    options.device = *device;
    options.baud = line.baudRate;
    options.dataBits = line.dataBits;
    options.stopBits = line.stopBits;
    options.parity = line.parity;
    if (auto pcap = TakeOption(args, "--pcap")) options.pcapPath = *pcap;
    if (auto csv = TakeOption(args, "--csv")) options.csvPath = *csv;
    if (auto duration = TakeOption(args, "--duration")) {
        options.durationSeconds = ParseUnsigned(*duration, "--duration", 1, 100000000);
    }
    options.quiet = TakeFlag(args, "--quiet");
    RejectUnknownOptions(args);
    if (!args.empty()) throw UsageError("unexpected argument '" + args.front() + "'");
    return options;
}

int RunMonitor(std::vector<std::string>& args) {
    const Modbus::MonitorOptions options = TakeMonitorOptions(args);
    InstallStopSignals();
    BufferedOutput output;
    return Modbus::RunBusMonitor(options, [] { return StopRequested(); },
                                 {[](const std::string& line) { OutLine(line); },
                                  [](const std::string& line) { ErrLine(line); }});
}

}  // namespace

constexpr char kMonitorHelp[] =
    "Listens to a Modbus RTU line without ever writing to it: recovers every frame (by the silences where\n"
    "they show, the function code's length and the CRC), pairs requests with responses and prints one line\n"
    "per frame; at the end (--duration, Ctrl-C or SIGTERM) a statistics table per unit id and the noise\n"
    "bytes skipped. Frame line: TIME DIRECTION unit U NAME[, address A][, count C][, values V...]\n"
    "[, exception E]: STATUS[, RT ms] | BYTES.\n"
    "\n"
    "Options:\n"
    "  --rtu DEVICE           the serial port to listen on (/dev/ttyUSB0, COM3), 8 data bits\n"
    "  --baud N               the baud rate; default 9600 (it sets the 3.5-character silence)\n"
    "  --parity N|E|O         no, even or odd parity; default N\n"
    "  --stop-bits 1|2        the stop bits; default 1\n"
    "  --pcap FILE            write every frame to a PCAP capture as it comes (tshark: -d tcp.port==502,mbrtu)\n"
    "  --csv FILE             write every frame as a CSV row (separator ;) as it comes\n"
    "  --duration S           stop after S seconds; default: run until Ctrl-C or SIGTERM\n"
    "  --quiet                print no frame lines, only the statistics\n"
    "Example:\n"
    "  kestrel-cli monitor --rtu /dev/ttyUSB0 --baud 19200 --parity E --csv bus.csv --pcap bus.pcap\n";

KESTREL_CLI_COMMAND(monitor, "monitor",
                    "  kestrel-cli [--lang en|de] monitor --rtu DEVICE [--baud N] [--parity N|E|O] [--stop-bits 1|2]\n"
                    "              [--pcap FILE] [--csv FILE] [--duration S] [--quiet]\n",
                    kMonitorHelp, RunMonitor);

}  // namespace cli
