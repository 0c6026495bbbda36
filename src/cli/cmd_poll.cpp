// kestrel-cli poll: polls one structure of the store as the Structures page does.
#include <climits>
#include <cstdio>

#include "cli/command.h"
#include "cli/mqtt_options.h"
#include "cli/poll_session.h"
#include "cli/store_loading.h"
#include "polling/structure_polling.h"

namespace cli {
namespace {

int RunPoll(std::vector<std::string>& args) {
    const std::string path = TakeOption(args, "--file").value_or(kStructuresFileName);
    const auto id = TakeOption(args, "--id");
    const auto name = TakeOption(args, "--name");
    const auto interval = TakeOption(args, "--interval");
    const auto cycles = TakeOption(args, "--cycles");
    PollSessionOptions options;
    options.csvPath = TakeOption(args, "--record");
    options.pcapPath = TakeOption(args, "--pcap");
    try {
        options.mqtt = TakeMqttOptions(args);
    } catch (const UnreadableFile& error) {
        std::fprintf(stderr, "kestrel-cli: %s\n", error.what());
        return 1;
    }
    RejectUnknownOptions(args);
    if (!args.empty()) throw UsageError("unexpected argument '" + args.front() + "'");
    if (id.has_value() == name.has_value()) throw UsageError("poll needs either --id N or --name NAME");
    // The interval is converted like the window's poll-interval field: below 100 (unsigned) is 100.
    options.intervalMs = PollIntervalFromText(interval.value_or("1000"));
    if (cycles) options.cycles = static_cast<uint32_t>(ParseUnsigned(*cycles, "--cycles", 1, UINT32_MAX));

    StructureStore store(path);
    if (!LoadStoreOrReport(store)) return 1;
    if (id) {
        options.structureId = static_cast<int32_t>(ParseSigned(*id, "--id", INT32_MIN, INT32_MAX));
    } else {
        for (const ModbusStructure& s : store.Structures()) {
            if (s.name == *name) {
                options.structureId = s.id;
                break;
            }
        }
        if (options.structureId == 0) {
            std::fprintf(stderr, "kestrel-cli: %s: no structure named '%s'\n", path.c_str(), name->c_str());
            return 1;
        }
    }
    InstallStopSignals();
    return RunPollSession(store, options);
}

}  // namespace

// What `kestrel-cli poll --help` prints after the usage (and the manual page shows).
const std::string kPollHelp = std::string(
    "Polls one structure of the structures file as the window's Structures page does, until --cycles or\n"
    "Ctrl-C. Each cycle prints a line \"name: value\" per detail (\"name: [Fehler]\" when its read failed);\n"
    "alarm events print as they are raised (\"[HH:MM:SS] type | detail | message\"); the log goes to stderr.\n"
    "\n"
    "Options:\n"
    "  --file F               the structures file; default modbus_structures.json in the current folder\n"
    "  --id N                 the structure to poll, by its id (give --id or --name)\n"
    "  --name NAME            the structure to poll, by its name\n"
    "  --interval MS          milliseconds from the start of one cycle to the next; below 100 is 100; default 1000\n"
    "  --cycles N             stop after N cycles; default: poll until Ctrl-C or SIGTERM\n"
    "  --record FILE.csv      write the recorded values to FILE.csv at the end; default: no recording\n"
    "  --pcap FILE.pcap       write the traffic as a capture for Wireshark to FILE.pcap at the end; default: none\n") +
    kMqttHelp +
    "Example:\n"
    "  kestrel-cli poll --file plant.json --name Demo-Geraet --interval 250 --cycles 4 --record values.csv\n"
    "  kestrel-cli poll --file plant.json --name Demo-Geraet --mqtt --mqtt-broker tcp://127.0.0.1:1883 --mqtt-qos 1\n";

const std::string kPollUsage = std::string(
    "  kestrel-cli [--lang en|de] poll [--file F] (--id N | --name NAME) [--interval MS] [--cycles N] "
    "[--record FILE.csv] [--pcap FILE.pcap]\n") + kMqttUsage;

KESTREL_CLI_COMMAND(poll, "poll", kPollUsage.c_str(), kPollHelp.c_str(), RunPoll);

}  // namespace cli
