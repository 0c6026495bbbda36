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

KESTREL_CLI_COMMAND(monitor, "monitor",
                    "  kestrel-cli [--lang en|de] monitor --rtu DEVICE [--baud N] [--parity N|E|O] [--stop-bits 1|2]\n"
                    "              [--pcap FILE] [--csv FILE] [--duration S] [--quiet]\n",
                    "Listens to an RTU line without ever writing to it; prints one line per frame and the\n"
                    "statistics per unit id at the end (Ctrl-C or --duration).\n"
                    "  --rtu DEVICE     the serial port (COM5, /dev/ttyUSB0)\n"
                    "  --baud N         line speed (default 9600); with --parity (default N) and\n"
                    "                   --stop-bits (default 1) it sets the 3.5-character silence\n"
                    "  --pcap FILE      write every frame to a PCAP capture, flushed frame by frame\n"
                    "                   (tshark -r FILE -d tcp.port==502,mbrtu decodes it)\n"
                    "  --csv FILE       write every frame as a CSV row (separator ';')\n"
                    "  --duration S     stop after S seconds\n"
                    "  --quiet          no frame lines, only the statistics\n"
                    "example:\n"
                    "  kestrel-cli monitor --rtu /dev/ttyUSB0 --baud 19200 --parity E --csv bus.csv --pcap bus.pcap\n",
                    RunMonitor);

}  // namespace cli
