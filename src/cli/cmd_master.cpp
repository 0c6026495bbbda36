// kestrel-cli read / write: one master operation (or --repeat N of them) on one connection.
#include <cstdio>
#include <string>
#include <vector>

#include "cli/command.h"
#include "cli/connection_args.h"
#include "cli/output.h"
#include "protocol/modbus_client.h"

namespace cli {
namespace {

struct MasterRequest {
    ConnectionConfig connection;
    uint8_t unitId = 1;
    uint8_t functionCode = 0;
    uint16_t address = 0;
    uint16_t count = 1;
    uint32_t repeat = 1;
    std::vector<std::string> values;
};

MasterRequest TakeMasterRequest(std::vector<std::string>& args, std::initializer_list<int> allowedCodes) {
    MasterRequest request;
    request.connection = TakeMasterConnection(args);
    if (auto unit = TakeOption(args, "--unit")) request.unitId = static_cast<uint8_t>(ParseUnsigned(*unit, "--unit", 0, 255));
    const auto fc = TakeOption(args, "--fc");
    if (!fc) throw UsageError("--fc is required");
    request.functionCode = static_cast<uint8_t>(ParseUnsigned(*fc, "--fc", 0, 255));
    bool allowed = false;
    std::string list;
    for (int code : allowedCodes) {
        allowed = allowed || code == request.functionCode;
        list += (list.empty() ? "" : ", ") + std::to_string(code);
    }
    if (!allowed) throw UsageError("--fc must be one of " + list + ", not '" + *fc + "'");
    const auto address = TakeOption(args, "--address");
    if (!address) throw UsageError("--address is required");
    request.address = static_cast<uint16_t>(ParseUnsigned(*address, "--address", 0, 65535));
    RejectUnknownOptions(args);
    request.values = args;
    args.clear();
    return request;
}

std::vector<uint16_t> ParseRegisterValues(const std::vector<std::string>& texts) {
    std::vector<uint16_t> values;
    for (const auto& text : texts) values.push_back(static_cast<uint16_t>(ParseUnsigned(text, "a register value", 0, 65535)));
    return values;
}

std::vector<bool> ParseBitValues(const std::vector<std::string>& texts) {
    std::vector<bool> values;
    for (const auto& text : texts) values.push_back(ParseUnsigned(text, "a coil value", 0, 1) != 0);
    return values;
}

void PrintBits(const std::vector<bool>& bits) {
    std::string text;
    text.reserve(2 * bits.size());
    for (bool bit : bits) text += bit ? "1\n" : "0\n";
    OutText(text);
}

void PrintWords(const std::vector<uint16_t>& words) {
    std::string text;
    text.reserve(6 * words.size());
    for (uint16_t word : words) {
        text += std::to_string(word);
        text += '\n';
    }
    OutText(text);
}

ModbusClient& ConnectedClient(ModbusClient& client, const ConnectionConfig& config) {
    client.SetLogCallback([](const std::string& line) { ErrLine(line); });
    client.Connect(config);
    return client;
}

// Closes the connection (which logs "Disconnected.") and silences it, so that its destruction
// does not log the same line again.
void Finish(ModbusClient& client) {
    client.Disconnect();
    client.SetLogCallback(nullptr);
}

// One read; prints its values when it succeeded.
bool RunRead(ModbusClient& client, const MasterRequest& r, const std::vector<uint16_t>& writeValues) {
    std::vector<bool> bits;
    std::vector<uint16_t> words;
    bool ok = false;
    switch (r.functionCode) {
        case 1: ok = client.ReadCoils(r.unitId, r.address, r.count, bits); break;
        case 2: ok = client.ReadDiscreteInputs(r.unitId, r.address, r.count, bits); break;
        case 3: ok = client.ReadHoldingRegisters(r.unitId, r.address, r.count, words); break;
        case 4: ok = client.ReadInputRegisters(r.unitId, r.address, r.count, words); break;
        case 23:
            ok = client.ReadWriteMultipleRegisters(r.unitId, r.address, r.count, r.address, writeValues, words);
            break;
        case 24: ok = client.ReadFifoQueue(r.unitId, r.address, words); break;
        default: break;
    }
    if (!ok) return false;
    if (r.functionCode <= 2) {
        PrintBits(bits);
    } else {
        PrintWords(words);
    }
    return true;
}

int RunReadCommand(std::vector<std::string>& args) {
    std::optional<std::string> count = TakeOption(args, "--count");
    std::optional<std::string> repeat = TakeOption(args, "--repeat");
    MasterRequest request = TakeMasterRequest(args, {1, 2, 3, 4, 23, 24});
    if (count) request.count = static_cast<uint16_t>(ParseUnsigned(*count, "--count", 0, 65535));
    if (repeat) request.repeat = static_cast<uint32_t>(ParseUnsigned(*repeat, "--repeat", 1, 1000000));
    std::vector<uint16_t> writeValues;
    if (request.functionCode == 23) {
        writeValues = request.values.empty() ? std::vector<uint16_t>{0} : ParseRegisterValues(request.values);
    } else if (!request.values.empty()) {
        throw UsageError("values are only given to --fc 23, not to a plain read");
    }

    BufferedOutput output;
    ModbusClient client;
    if (!ConnectedClient(client, request.connection).IsConnected()) return 1;
    bool allOk = true;
    for (uint32_t i = 0; i < request.repeat; ++i) {
        allOk = RunRead(client, request, writeValues) && allOk;
    }
    Finish(client);
    return allOk ? 0 : 1;
}

int RunWriteCommand(std::vector<std::string>& args) {
    MasterRequest request = TakeMasterRequest(args, {5, 6, 15, 16});
    if (request.values.empty()) throw UsageError("write needs at least one VALUE");
    const bool single = request.functionCode == 5 || request.functionCode == 6;
    if (single && request.values.size() != 1) throw UsageError("--fc " + std::to_string(request.functionCode) + " writes exactly one VALUE");
    std::vector<bool> bits;
    std::vector<uint16_t> words;
    if (request.functionCode == 5 || request.functionCode == 15) {
        bits = ParseBitValues(request.values);
    } else {
        words = ParseRegisterValues(request.values);
    }
    if (bits.size() > 65535 || words.size() > 65535) throw UsageError("too many values");

    BufferedOutput output;
    ModbusClient client;
    if (!ConnectedClient(client, request.connection).IsConnected()) return 1;
    bool ok = false;
    switch (request.functionCode) {
        case 5: ok = client.WriteSingleCoil(request.unitId, request.address, bits[0]); break;
        case 6: ok = client.WriteSingleRegister(request.unitId, request.address, words[0]); break;
        case 15: ok = client.WriteMultipleCoils(request.unitId, request.address, bits); break;
        case 16: ok = client.WriteMultipleRegisters(request.unitId, request.address, words); break;
        default: break;
    }
    Finish(client);
    return ok ? 0 : 1;
}

}  // namespace

// What `kestrel-cli read --help` prints after the usage (and the manual page shows).
constexpr char kReadHelp[] =
    "Reads coils, discrete inputs or registers of a slave, once or --repeat times on one connection.\n"
    "The values go to stdout, one a line (bits as 0 or 1, registers as unsigned decimals); the log to stderr.\n"
    "\n"
    "Options:\n"
    KESTREL_CLI_CONNECTION_HELP
    "  --unit N               the unit id of the requests, 0 to 255; default 1\n"
    "  --fc 1|2|3|4|23|24     required: 1 coils, 2 inputs, 3 holding, 4 input registers, 23 read/write, 24 FIFO\n"
    "  --address A            required: the first address, 0 to 65535 (decimal, or hexadecimal as 0x...)\n"
    "  --count N              how many coils or registers to read, 0 to 65535; default 1\n"
    "  --repeat N             the same read N times on one connection, 1 to 1000000; default 1\n"
    "  VALUE...               with --fc 23 only: the registers written at the same address first; default one 0\n"
    "Example:\n"
    "  kestrel-cli read --tcp 127.0.0.1:1502 --fc 3 --address 0 --count 4\n";

KESTREL_CLI_COMMAND(read, "read",
                    "  kestrel-cli [--lang en|de] read  CONN [--unit N] --fc 1|2|3|4|23|24 --address A [--count N] [--repeat N] [VALUE...]\n", kReadHelp,
                    RunReadCommand);
// What `kestrel-cli write --help` prints after the usage (and the manual page shows).
constexpr char kWriteHelp[] =
    "Writes coils or holding registers of a slave. The log goes to stderr; nothing goes to stdout.\n"
    "\n"
    "Options:\n"
    KESTREL_CLI_CONNECTION_HELP
    "  --unit N               the unit id of the request, 0 to 255; default 1\n"
    "  --fc 5|6|15|16         required: 5 one coil, 6 one holding register, 15 coils, 16 holding registers\n"
    "  --address A            required: the first address, 0 to 65535 (decimal, or hexadecimal as 0x...)\n"
    "  VALUE...               required: 0 or 1 for coils, 0 to 65535 for registers; exactly one for --fc 5 and 6\n"
    "Example:\n"
    "  kestrel-cli write --tcp 127.0.0.1:1502 --fc 16 --address 10 100 200 300\n";

KESTREL_CLI_COMMAND(write, "write",
                    "  kestrel-cli [--lang en|de] write CONN [--unit N] --fc 5|6|15|16 --address A VALUE...\n", kWriteHelp,
                    RunWriteCommand);

}  // namespace cli
