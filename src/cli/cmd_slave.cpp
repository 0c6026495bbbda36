// kestrel-cli slave: serves a register image over Modbus TCP or RTU until SIGINT/SIGTERM or
// --duration, printing every line the connection logs. Stops the way the window does, through
// Disconnect, so the thread-stopped and "Disconnected." lines close the output.
#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "cli/command.h"
#include "cli/connection_args.h"
#include "cli/output.h"
#include "platform/clock.h"
#include "platform/file_io.h"
#include "protocol/modbus_client.h"
#include "sim/fault_simulator.h"
#include "sim/image_file.h"

namespace cli {
namespace {

struct SlaveOptions {
    ConnectionConfig connection;
    uint32_t delayMs = 0;
    bool inject = false;
    uint8_t injectCode = 4;
    uint16_t injectFrom = 0;
    uint16_t injectTo = 65535;
    uint64_t durationSeconds = 0;  // 0: until a stop signal
    std::vector<std::pair<uint16_t, std::vector<uint16_t>>> holding;
    std::vector<std::pair<uint16_t, std::vector<bool>>> coils;
    std::vector<std::pair<uint16_t, std::vector<uint16_t>>> input;
    std::vector<std::pair<uint16_t, std::vector<bool>>> discrete;
    std::vector<sim::ImageValue> image;  // --image, seeded before the blocks above
    std::string saveImagePath;           // --save-image, written when the slave stops
    sim::FaultPlan faults;
    bool seedGiven = false;
};

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    size_t start = 0;
    while (true) {
        const size_t end = text.find(separator, start);
        parts.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
        if (end == std::string::npos) return parts;
        start = end + 1;
    }
}

// "A=V[,V...]": a start address and the values that follow it.
template <typename Value>
std::pair<uint16_t, std::vector<Value>> ParseBlock(const std::string& text, const std::string& flag, uint64_t maxValue) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos) throw UsageError(flag + " must look like A=V[,V...], not '" + text + "'");
    const auto address = static_cast<uint16_t>(ParseUnsigned(text.substr(0, equals), flag + " address", 0, 65535));
    std::vector<Value> values;
    for (const std::string& part : Split(text.substr(equals + 1), ',')) {
        values.push_back(static_cast<Value>(ParseUnsigned(part, flag + " value", 0, maxValue)));
    }
    return {address, values};
}

// "CODE:FROM-TO"
void ParseInjection(const std::string& text, SlaveOptions& options) {
    const size_t colon = text.find(':');
    const size_t dash = text.find('-', colon == std::string::npos ? 0 : colon);
    if (colon == std::string::npos || dash == std::string::npos) {
        throw UsageError("--inject must look like CODE:FROM-TO, not '" + text + "'");
    }
    options.inject = true;
    options.injectCode = static_cast<uint8_t>(ParseUnsigned(text.substr(0, colon), "--inject code", 1, 255));
    options.injectFrom = static_cast<uint16_t>(ParseUnsigned(text.substr(colon + 1, dash - colon - 1), "--inject FROM", 0, 65535));
    options.injectTo = static_cast<uint16_t>(ParseUnsigned(text.substr(dash + 1), "--inject TO", 0, 65535));
    if (options.injectFrom > options.injectTo) throw UsageError("--inject FROM must not be above TO in '" + text + "'");
}

std::vector<sim::ImageValue> ReadImageFile(const std::string& path) {
    std::string text;
    if (!platform::ReadWholeFile(path, text)) throw UsageError("--image " + path + ": cannot read the file");
    std::vector<sim::ImageValue> values;
    std::string error;
    if (!sim::ParseImageText(text, values, error)) throw UsageError("--image " + path + ": " + error);
    return values;
}

// --fault, --jitter, --seed; faults the transport cannot have are usage errors.
void TakeFaultOptions(std::vector<std::string>& args, SlaveOptions& options) {
    for (const auto& fault : TakeRepeatedOption(args, "--fault")) {
        const std::string error = sim::AddFault(options.faults, fault);
        if (!error.empty()) throw UsageError(error);
    }
    if (auto jitter = TakeOption(args, "--jitter")) {
        const std::string error = sim::SetJitter(options.faults, *jitter);
        if (!error.empty()) throw UsageError(error);
    }
    if (auto seed = TakeOption(args, "--seed")) {
        options.faults.seed = static_cast<uint32_t>(ParseUnsigned(*seed, "--seed", 0, 4294967295u));
        options.seedGiven = true;
    }
    // RTU over TCP: RTU frames (a CRC, no transaction id) on a TCP connection (which can be dropped).
    const int32_t transport = options.connection.transport;
    const bool tcpFraming = transport == kTransportTcp;
    const bool tcpConnection = transport == kTransportTcp || transport == kTransportRtuOverTcp;
    const std::string error = sim::CheckTransport(options.faults, tcpFraming, tcpConnection);
    if (!error.empty()) throw UsageError(error);
}

SlaveOptions TakeSlaveOptions(std::vector<std::string>& args) {
    SlaveOptions options;
    ConnectionConfig& c = options.connection;
    c.role = 1;
    const auto port = TakeOption(args, "--tcp-port");
    const auto device = TakeOption(args, "--rtu");
    const auto rtuOverTcpPort = TakeOption(args, "--rtu-over-tcp-port");
    if (rtuOverTcpPort && (port || device)) {
        throw UsageError("give exactly one of --tcp-port, --rtu and --rtu-over-tcp-port");
    }
    if (!rtuOverTcpPort && port.has_value() == device.has_value()) {
        throw UsageError("give exactly one of --tcp-port and --rtu");
    }
    if (rtuOverTcpPort) {
        c.transport = kTransportRtuOverTcp;
        c.port = static_cast<uint16_t>(ParseUnsigned(*rtuOverTcpPort, "--rtu-over-tcp-port", 0, 65535));
    } else if (port) {
        c.transport = 0;
        c.port = static_cast<uint16_t>(ParseUnsigned(*port, "--tcp-port", 0, 65535));
    } else {
        c.transport = 1;
        c.serialPort = *device;
        TakeSerialLineOptions(args, c);
    }
    if (auto unit = TakeOption(args, "--unit")) c.unitId = static_cast<uint8_t>(ParseUnsigned(*unit, "--unit", 0, 255));
    if (auto delay = TakeOption(args, "--delay")) {
        options.delayMs = static_cast<uint32_t>(ParseUnsigned(*delay, "--delay", 0, 4294967295u));
    }
    if (auto inject = TakeOption(args, "--inject")) ParseInjection(*inject, options);
    for (const auto& block : TakeRepeatedOption(args, "--holding")) {
        options.holding.push_back(ParseBlock<uint16_t>(block, "--holding", 65535));
    }
    for (const auto& block : TakeRepeatedOption(args, "--coils")) {
        options.coils.push_back(ParseBlock<bool>(block, "--coils", 1));
    }
    for (const auto& block : TakeRepeatedOption(args, "--input")) {
        options.input.push_back(ParseBlock<uint16_t>(block, "--input", 65535));
    }
    for (const auto& block : TakeRepeatedOption(args, "--discrete")) {
        options.discrete.push_back(ParseBlock<bool>(block, "--discrete", 1));
    }
    if (auto image = TakeOption(args, "--image")) options.image = ReadImageFile(*image);
    if (auto save = TakeOption(args, "--save-image")) options.saveImagePath = *save;
    TakeFaultOptions(args, options);
    if (auto duration = TakeOption(args, "--duration")) {
        options.durationSeconds = ParseUnsigned(*duration, "--duration", 1, 100000000);
    }
    RejectUnknownOptions(args);
    if (!args.empty()) throw UsageError("unexpected argument '" + args.front() + "'");
    return options;
}

void WaitForStop(uint64_t durationSeconds) {
    const auto start = std::chrono::steady_clock::now();
    while (!StopRequested()) {
        if (durationSeconds != 0 && std::chrono::steady_clock::now() - start >= std::chrono::seconds(durationSeconds)) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

void SeedImage(SlaveRegisterImage& image, const SlaveOptions& options) {
    sim::SeedImage(image, options.image);
    for (const auto& [address, values] : options.holding) image.SetHoldingRegisters(address, values);
    for (const auto& [address, values] : options.coils) image.SetCoils(address, values);
    for (const auto& [address, values] : options.input) image.SetInputRegisters(address, values);
    for (const auto& [address, values] : options.discrete) image.SetDiscreteInputs(address, values);
}

// The fault simulator as the slave's response filter; none without --fault or --jitter, so that
// the slave then sends exactly what it always sends.
std::shared_ptr<sim::FaultSimulator> InstallFaults(ModbusClient& client, SlaveOptions& options) {
    if (options.faults.Empty()) return nullptr;
    if (!options.seedGiven) {
        options.faults.seed = std::random_device{}();
        ErrLine("kestrel-cli: fault seed " + std::to_string(options.faults.seed) + " (replay with --seed " +
                std::to_string(options.faults.seed) + ")");
    }
    auto simulator = std::make_shared<sim::FaultSimulator>(
        options.faults, [](const std::string& line) { OutLine(line); },
        [](uint32_t ms) { platform::SleepMilliseconds(ms); });
    client.SetResponseFilter([simulator](SlaveAnswer& answer) { return simulator->Apply(answer); });
    return simulator;
}

// Every non-zero value of the image, in the --image format; false after a message when the file
// cannot be written.
bool SaveImage(const SlaveRegisterImage& image, const std::string& path) {
    if (platform::WriteFileReplacing(path, sim::ImageText(image))) return true;
    ErrLine("kestrel-cli: --save-image " + path + ": cannot write the file");
    return false;
}

int RunSlave(std::vector<std::string>& args) {
    SlaveOptions options = TakeSlaveOptions(args);
    InstallStopSignals();

    BufferedOutput output;
    ModbusClient client;
    client.SetLogCallback([](const std::string& line) { OutLine(line); });
    SeedImage(client.Image(), options);
    const auto simulator = InstallFaults(client, options);
    client.responseDelayMs = options.delayMs;
    client.exceptionInjectionEnabled = options.inject;
    client.exceptionInjectionCode = options.injectCode;
    client.exceptionInjectionFrom = options.injectFrom;
    client.exceptionInjectionTo = options.injectTo;

    const bool started = client.Connect(options.connection);
    const bool listens = options.connection.transport == kTransportTcp ||
                         options.connection.transport == kTransportRtuOverTcp;
    if (started && listens && options.connection.port == 0) {
        // Port 0 lets the system choose; say which one it chose (stderr, so stdout stays the log).
        ErrLine("kestrel-cli: slave listening on port " + std::to_string(client.ListeningPort()));
        FlushOutput();
    }
    bool saved = true;
    if (started) {
        WaitForStop(options.durationSeconds);
        client.Disconnect();
        if (!options.saveImagePath.empty()) saved = SaveImage(client.Image(), options.saveImagePath);
    }
    // The destructor disconnects again; that second "Disconnected." is not part of the output.
    client.SetLogCallback(nullptr);
    return started && saved ? 0 : 1;
}

}  // namespace

// What `kestrel-cli slave --help` prints after the usage (and the manual page shows).
constexpr char kSlaveHelp[] =
    "Serves a register image (coils, discrete inputs, holding and input registers, all 0 at first) to a\n"
    "master over Modbus TCP or RTU until --duration ends, Ctrl-C or SIGTERM. Every log line goes to stdout.\n"
    "\n"
    "Options:\n"
    "  --tcp-port P           serve Modbus TCP on port P; 0 takes a free port and names it on stderr\n"
    "  --rtu DEVICE           serve Modbus RTU on a serial port (/dev/ttyUSB0, COM3), 8 data bits\n"
    "  --baud N               with --rtu: the baud rate; default 9600\n"
    "  --parity N|E|O         with --rtu: no, even or odd parity; default N\n"
    "  --stop-bits 1|2        with --rtu: the stop bits; default 1\n"
    "  --rtu-over-tcp-port P  serve RTU frames over TCP on port P, as a serial-to-Ethernet gateway; 0 as above\n"
    "  --unit N               the unit id the slave answers, 0 to 255; default 1\n"
    "  --delay MS             wait MS milliseconds before every response; default 0\n"
    "  --inject CODE:FROM-TO  answer requests starting at an address FROM to TO with exception CODE; default off\n"
    "  --holding A=V[,V...]   holding registers from address A on hold the values V (repeatable); default 0\n"
    "  --coils A=B[,B...]     coils from address A on hold the bits B, 0 or 1 (repeatable); default 0\n"
    "  --input A=V[,V...]     input registers from address A on hold the values V (repeatable); default 0\n"
    "  --discrete A=B[,B...]  discrete inputs from address A on hold the bits B (repeatable); default 0\n"
    "  --image FILE           seed the four tables from FILE's table;address;value lines, first\n"
    "  --save-image FILE      at the stop, write every non-zero value to FILE in the --image format\n"
    "  --fault NAME:P         play fault NAME on P percent of the answers (repeatable, 100 in all):\n"
    "                         silence, drop (TCP, RTU over TCP), wrong-unit, bad-crc (RTU, RTU over TCP),\n"
    "                         wrong-tid (TCP); default none\n"
    "  --jitter MIN-MAX       delay every answer by a random MIN to MAX ms more; default none\n"
    "  --seed N               the seed of the faults and the jitter; default random, printed on stderr\n"
    "  --duration S           stop after S seconds; default: run until Ctrl-C or SIGTERM\n"
    "Example:\n"
    "  kestrel-cli slave --tcp-port 1502 --holding 0=11,22,33,44 --coils 0=1,0,1 --duration 60\n"
    "  kestrel-cli slave --tcp-port 1502 --image pump.image --fault silence:10 --jitter 0-50 --seed 7\n";

KESTREL_CLI_COMMAND(slave, "slave",
                    "  kestrel-cli [--lang en|de] slave (--tcp-port P | --rtu DEVICE [--baud N] [--parity N|E|O] "
                    "[--stop-bits 1|2] | --rtu-over-tcp-port P)\n"
                    "              [--unit N] [--delay MS] [--inject CODE:FROM-TO] [--holding A=V[,V...]]... "
                    "[--coils A=B[,B...]]...\n"
                    "              [--input A=V[,V...]]... [--discrete A=B[,B...]]... [--image FILE] "
                    "[--save-image FILE]\n"
                    "              [--fault silence|drop|wrong-unit|bad-crc|wrong-tid:P]... [--jitter MIN-MAX] "
                    "[--seed N] [--duration S]\n", kSlaveHelp,
                    RunSlave);

}  // namespace cli
