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

const std::string kPollUsage = std::string(
    "  kestrel-cli [--lang en|de] poll [--file F] (--id N | --name NAME) [--interval MS] [--cycles N] "
    "[--record FILE.csv] [--pcap FILE.pcap] ") + kMqttUsage + "\n";
const std::string kPollHelp = std::string(kMqttHelp) +
    "example: kestrel-cli poll --name \"Pumpe 1\" --interval 500 --mqtt --mqtt-broker tcp://127.0.0.1:1883\n";

KESTREL_CLI_COMMAND(poll, "poll", kPollUsage.c_str(), kPollHelp.c_str(), RunPoll);

}  // namespace cli
