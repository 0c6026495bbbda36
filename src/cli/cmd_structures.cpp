// kestrel-cli structures: lists, shows and extends the structures file the window uses.
#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "cli/command.h"
#include "common/localizer.h"
#include "maps/register_map.h"
#include "model/demo_structure.h"
#include "model/json_text.h"
#include "model/structure_store.h"
#include "platform/file_io.h"

namespace cli {
namespace {

const char* Ui(const char* english, const char* german) {
    return Localizer::Text(Localizer::Scope::Ui, english, german);
}

// A name on one line: line breaks, tabs and other control bytes are shown escaped.
std::string OneLine(const std::string& text) {
    std::string out;
    for (char c : text) {
        const unsigned char u = static_cast<unsigned char>(c);
        if (c == '\n') out += "\\n";
        else if (c == '\r') out += "\\r";
        else if (c == '\t') out += "\\t";
        else if (u < 0x20 || u == 0x7F) {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02X", u);
            out += hex;
        } else {
            out += c;
        }
    }
    return out;
}

std::string Quoted(const std::string& text) {
    std::string quoted(1, '"');
    quoted.append(OneLine(EscapeJsonString(text)));
    quoted.push_back('"');
    return quoted;
}

int FileError(const std::string& path, const std::string& what) {
    std::fprintf(stderr, "kestrel-cli: %s: %s\n", path.c_str(), what.c_str());
    return 1;
}

// Loads the file; false (after the one-line error) when a number in it cannot be read.
bool Load(StructureStore& store) {
    try {
        store.LoadStructures();
        return true;
    } catch (const std::exception& error) {
        FileError(store.Path(), std::string(Ui("malformed structures file", "fehlerhafte Strukturdatei")) + " (" +
                                    error.what() + ")");
        return false;
    }
}

void PrintList(const StructureStore& store) {
    const std::vector<ModbusStructure> structures = store.Structures();
    if (structures.empty()) {
        std::fprintf(stderr, "%s %s\n", Ui("No structures in", "Keine Strukturen in"), store.Path().c_str());
    }
    for (const ModbusStructure& s : structures) {
        const size_t n = s.details.size();
        std::printf("%d  %s  %s:%u  %s %u  %zu %s\n", s.id, OneLine(s.name).c_str(), OneLine(s.ip).c_str(),
                    static_cast<unsigned>(s.port), "Unit-ID", static_cast<unsigned>(s.unitId), n,
                    n == 1 ? "Detail" : "Details");
    }
}

void PrintDetail(const Modbus::ModbusDetail& d) {
    std::printf(
        "  %d  name=%s unit=%s dataType=%s arraySize=%d registerAddress=%u functionCode=%u byteOrder=%s "
        "scale=%s offset=%s warnLow=%s warnHigh=%s alarmLow=%s alarmHigh=%s alarmOnChange=%s widgetType=%s\n",
        d.id, Quoted(d.name).c_str(), Quoted(d.unit).c_str(), Modbus::DataTypeName(d.dataType), d.arraySize,
        static_cast<unsigned>(d.registerAddress), static_cast<unsigned>(d.functionCode),
        Modbus::ByteOrderName(d.byteOrder), FormatJsonDouble(d.scale).c_str(), FormatJsonDouble(d.offset).c_str(),
        FormatJsonDouble(d.warnLow).c_str(), FormatJsonDouble(d.warnHigh).c_str(),
        FormatJsonDouble(d.alarmLow).c_str(), FormatJsonDouble(d.alarmHigh).c_str(),
        d.alarmOnChange ? "true" : "false", Modbus::WidgetTypeName(d.widgetType));
}

void PrintStructure(const ModbusStructure& s) {
    std::printf("id: %d\n", s.id);
    std::printf("name: %s\n", OneLine(s.name).c_str());
    std::printf("description: %s\n", OneLine(s.description).c_str());
    std::printf("ip: %s\n", OneLine(s.ip).c_str());
    std::printf("port: %u\n", static_cast<unsigned>(s.port));
    std::printf("unitId: %u\n", static_cast<unsigned>(s.unitId));
    std::printf("rtuOverTcp: %s\n", s.rtuOverTcp ? "true" : "false");
    std::printf("details: %zu\n", s.details.size());
    for (const Modbus::ModbusDetail& d : s.details) PrintDetail(d);
}

// The options of import-csv and export-csv, taken wherever they stand.
struct MapOptions {
    std::optional<std::string> name, ip, port, unit, out;
    bool rtuOverTcp = false;

    bool AnyImportOption() const { return name || ip || port || unit || rtuOverTcp; }
};

MapOptions TakeMapOptions(std::vector<std::string>& args) {
    MapOptions options;
    options.name = TakeOption(args, "--name");
    options.ip = TakeOption(args, "--ip");
    options.port = TakeOption(args, "--port");
    options.unit = TakeOption(args, "--unit");
    options.rtuOverTcp = TakeFlag(args, "--rtu-over-tcp");
    options.out = TakeOption(args, "--out");
    return options;
}

std::string AddedLine(int32_t id, const std::string& name, size_t details, const std::string& path) {
    const std::string count = std::to_string(details);
    return Localizer::IsEnglish(Localizer::Scope::Ui)
               ? "Added structure " + std::to_string(id) + " \"" + name + "\" with " + count + " details to " + path + "."
               : "Struktur " + std::to_string(id) + " \"" + name + "\" mit " + count + " Details zu " + path +
                     " hinzugefuegt.";
}

// A new structure from a register map: the whole table is read before the store is touched, so a
// bad row leaves the structures file exactly as it was.
int ImportCsv(StructureStore& store, const std::string& mapPath, const MapOptions& options) {
    // The structure editor's defaults and refusals.
    ModbusStructure structure;
    if (!options.name || options.name->empty()) throw UsageError("import-csv needs --name NAME (not empty)");
    structure.name = *options.name;
    if (options.ip) {
        if (options.ip->empty()) throw UsageError("--ip must not be empty");
        structure.ip = *options.ip;
    }
    if (options.port) structure.port = static_cast<uint16_t>(ParseUnsigned(*options.port, "--port", 1, 65535));
    if (options.unit) structure.unitId = static_cast<uint8_t>(ParseUnsigned(*options.unit, "--unit", 0, 255));
    structure.rtuOverTcp = options.rtuOverTcp;

    std::string text;
    if (!platform::ReadWholeFile(mapPath, text)) {
        return FileError(mapPath, Ui("cannot read the file", "Datei nicht lesbar"));
    }
    std::string error;
    if (!maps::ImportRegisterMap(text, mapPath, structure.details, error)) {
        std::fprintf(stderr, "kestrel-cli: %s\n", error.c_str());
        return 1;
    }
    if (!Load(store)) return 1;
    const int32_t id = store.AddStructure(structure);
    if (!store.SaveStructures()) return FileError(store.Path(), Ui("cannot write the file", "Datei nicht schreibbar"));
    std::printf("%s\n", AddedLine(id, structure.name, structure.details.size(), store.Path()).c_str());
    return 0;
}

int ExportCsv(StructureStore& store, int32_t id, const std::optional<std::string>& out) {
    if (!Load(store)) return 1;
    const auto structure = store.FindStructure(id);
    if (!structure) {
        return FileError(store.Path(), std::string(Ui("no structure with id ", "keine Struktur mit der Id ")) +
                                           std::to_string(id));
    }
    const std::string text = maps::ExportRegisterMap(structure->details);
    if (!out) {
        std::fwrite(text.data(), 1, text.size(), stdout);
        return 0;
    }
    if (!platform::WriteFileReplacing(*out, text)) return FileError(*out, Ui("cannot write the file", "Datei nicht schreibbar"));
    return 0;
}

int RunStructures(std::vector<std::string>& args) {
    const std::string path = TakeOption(args, "--file").value_or(kStructuresFileName);
    const MapOptions mapOptions = TakeMapOptions(args);
    RejectUnknownOptions(args);
    if (args.empty()) throw UsageError("structures needs list, show ID, demo, import-csv MAP.csv or export-csv ID");
    const std::string action = args.front();
    args.erase(args.begin());
    if (mapOptions.AnyImportOption() && action != "import-csv") {
        throw UsageError("--name, --ip, --port, --unit and --rtu-over-tcp belong to structures import-csv");
    }
    if (mapOptions.out && action != "export-csv") throw UsageError("--out belongs to structures export-csv");

    StructureStore store(path);
    if (action == "import-csv") {
        if (args.size() != 1) throw UsageError("structures import-csv needs one MAP.csv");
        return ImportCsv(store, args.front(), mapOptions);
    }
    if (action == "export-csv") {
        if (args.size() != 1) throw UsageError("structures export-csv needs one structure id");
        const auto id = static_cast<int32_t>(ParseSigned(args.front(), "the structure id", INT32_MIN, INT32_MAX));
        return ExportCsv(store, id, mapOptions.out);
    }
    if (action == "list") {
        if (!args.empty()) throw UsageError("structures list takes no further arguments");
        if (!Load(store)) return 1;
        PrintList(store);
        return 0;
    }
    if (action == "show") {
        if (args.size() != 1) throw UsageError("structures show needs one structure id");
        const auto id = static_cast<int32_t>(ParseSigned(args.front(), "the structure id", INT32_MIN, INT32_MAX));
        if (!Load(store)) return 1;
        const auto structure = store.FindStructure(id);
        if (!structure) {
            return FileError(path, std::string(Ui("no structure with id ", "keine Struktur mit der Id ")) +
                                       std::to_string(id));
        }
        PrintStructure(*structure);
        return 0;
    }
    if (action == "demo") {
        if (!args.empty()) throw UsageError("structures demo takes no further arguments");
        // A file that does not load is left alone rather than overwritten with the demo alone.
        if (!Load(store)) return 1;
        const ModbusStructure demo = BuildDemoStructure();
        const int32_t id = store.AddStructure(demo);
        if (!store.SaveStructures()) return FileError(path, Ui("cannot write the file", "Datei nicht schreibbar"));
        std::printf("%s\n", AddedLine(id, demo.name, demo.details.size(), path).c_str());
        return 0;
    }
    throw UsageError("structures needs list, show ID, demo, import-csv MAP.csv or export-csv ID, not '" + action + "'");
}

}  // namespace

// What `kestrel-cli structures --help` prints after the usage (and the manual page shows).
constexpr char kStructuresHelp[] =
    "Lists, shows and extends the structures file the window uses: devices described as typed data points.\n"
    "\n"
    "Options:\n"
    "  --file F               the structures file; default modbus_structures.json in the current folder\n"
    "Actions:\n"
    "  list                   one line per structure: id, name, address, unit id and number of details\n"
    "  show ID                every field of one structure and of each of its details\n"
    "  demo                   adds the demo device (127.0.0.1:1502, 16 details) to the file, which is made if missing\n"
    "  import-csv MAP.csv     adds a structure with a detail per row of a register map (docs/REGISTER_MAPS.md)\n"
    "  export-csv ID          writes a structure's details as a register map to stdout\n"
    "Options of import-csv and export-csv:\n"
    "  --name NAME            import-csv: the new structure's name (required)\n"
    "  --ip IP                import-csv: the device's address; default 192.168.1.1\n"
    "  --port P               import-csv: the device's TCP port, 1 to 65535; default 502\n"
    "  --unit N               import-csv: the device's unit id, 0 to 255; default 1\n"
    "  --rtu-over-tcp         import-csv: the device speaks RTU frames over TCP; default off\n"
    "  --out MAP.csv          export-csv: write to this file instead of stdout\n"
    "Example:\n"
    "  kestrel-cli structures --file plant.json demo\n"
    "  kestrel-cli structures --file plant.json show 1\n"
    "  kestrel-cli structures --file plant.json import-csv pump.csv --name Pump --ip 10.0.0.7 --unit 3\n"
    "  kestrel-cli structures --file plant.json export-csv 2 --out pump-copy.csv\n";

KESTREL_CLI_COMMAND(structures, "structures",
                    "  kestrel-cli [--lang en|de] structures [--file F] list | show ID | demo\n"
                    "              | import-csv MAP.csv --name NAME [--ip IP] [--port P] [--unit N] [--rtu-over-tcp]\n"
                    "              | export-csv ID [--out MAP.csv]\n",
                    kStructuresHelp, RunStructures);

}  // namespace cli
