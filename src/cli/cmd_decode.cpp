// kestrel-cli decode: decodes registers given on the command line exactly as a polled detail is
// decoded and displayed, so a user can check a type and byte order before configuring a device.
#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

#include "cli/command.h"
#include "model/structure.h"
#include "model/value_decoding.h"
#include "model/value_display.h"

namespace cli {
namespace {

std::string Upper(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

int RunDecode(std::vector<std::string>& args) {
    Modbus::ModbusDetail detail;
    const auto type = TakeOption(args, "--type");
    if (!type) throw UsageError("--type is required");
    if (!Modbus::IsDataTypeName(Upper(*type))) {
        throw UsageError("--type must be one of BOOLEAN, BYTE, INT16, UINT16, INT32, UINT32, INT64, UINT64, FLOAT32, "
                         "FLOAT64, STRING, RAW, not '" + *type + "'");
    }
    detail.dataType = Modbus::ParseDataType(Upper(*type));
    if (const auto order = TakeOption(args, "--order")) {
        if (!Modbus::IsByteOrderName(Upper(*order))) {
            throw UsageError("--order must be one of BIG_ENDIAN, LITTLE_ENDIAN, BIG_ENDIAN_SWAP, LITTLE_ENDIAN_SWAP, "
                             "not '" + *order + "'");
        }
        detail.byteOrder = Modbus::ParseByteOrder(Upper(*order));
    }
    if (const auto scale = TakeOption(args, "--scale")) detail.scale = ParseDouble(*scale, "--scale");
    if (const auto offset = TakeOption(args, "--offset")) detail.offset = ParseDouble(*offset, "--offset");
    if (const auto unit = TakeOption(args, "--unit")) detail.unit = *unit;
    RejectUnknownOptions(args);
    if (args.empty()) throw UsageError("decode needs at least one register value");

    std::vector<uint16_t> registers;
    for (const std::string& text : args) {
        registers.push_back(static_cast<uint16_t>(ParseUnsigned(text, "a register value", 0, 65535)));
    }
    detail.arraySize = static_cast<int32_t>(registers.size());
    std::printf("%s\n", FormatDisplayText(detail, DecodeValue(registers, detail)).c_str());
    return 0;
}

}  // namespace

// What `kestrel-cli decode --help` prints after the usage (and the manual page shows).
constexpr char kDecodeHelp[] =
    "Decodes register values given on the command line exactly as a polled detail is decoded and shown,\n"
    "to try a data type and byte order before a device is described. The data types: BOOLEAN, BYTE,\n"
    "INT16, UINT16, INT32, UINT32, INT64, UINT64, FLOAT32, FLOAT64, STRING and RAW.\n"
    "\n"
    "Options:\n"
    "  --type NAME            required: the data type, one of those above (in upper or lower case)\n"
    "  --order NAME           BIG_ENDIAN, LITTLE_ENDIAN, BIG_ENDIAN_SWAP or LITTLE_ENDIAN_SWAP; default BIG_ENDIAN\n"
    "  --scale X              the decoded number is multiplied by X; default 1\n"
    "  --offset Y             and then Y is added to it; default 0\n"
    "  --unit U               the unit shown after the value; default none\n"
    "  REG...                 required: the register values, 0 to 65535 (decimal, or hexadecimal as 0x...)\n"
    "Example:\n"
    "  kestrel-cli decode --type UINT16 --scale 0.1 --offset -50 --unit degC 700\n"
    "  kestrel-cli decode --type FLOAT32 0x41C8 0x0000\n";

KESTREL_CLI_COMMAND(decode, "decode",
                    "  kestrel-cli [--lang en|de] decode --type NAME [--order NAME] [--scale X] [--offset Y] [--unit U] REG...\n", kDecodeHelp,
                    RunDecode);

}  // namespace cli
