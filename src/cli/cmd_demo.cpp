// kestrel-cli demo: the program's main job without a display. One process serves the demo device
// from a slave on port 1502 with lively values and polls it like the Structures page, from a
// temporary store that never touches the user's structures file.
#include <cstdio>
#include <filesystem>
#include <memory>
#include <mutex>

#include "cli/command.h"
#include "cli/mqtt_options.h"
#include "cli/demo_simulator.h"
#include "cli/poll_session.h"
#include "model/demo_structure.h"
#include "platform/clock.h"
#include "polling/structure_polling.h"
#include "protocol/modbus_client.h"

namespace cli {
namespace {

constexpr uint16_t kDemoPort = 1502;
// The slave drops a client that stays silent for 500 ms, and polling never reconnects on its own:
// the demo polls well inside that window.
constexpr const char* kDefaultDemoInterval = "250";
constexpr uint32_t kLongestDemoInterval = 400;

std::string TemporaryStorePath() {
    std::error_code error;
    std::filesystem::path dir = std::filesystem::temp_directory_path(error);
    if (error) dir = ".";
    const auto stamp = std::to_string(platform::UnixTimeMilliseconds()) + "-" +
                       std::to_string(platform::MonotonicMicroseconds() % 1000000);
    return (dir / ("kestrel-demo-" + stamp + ".json")).string();
}

// What the slave logs while it starts, kept to be printed when the start fails. The callback stays
// installed for the slave's whole life: replacing it while the slave's thread may be logging its
// first line would race with that thread. After the start it keeps nothing, since the slave's
// per-request lines would drown the values.
struct SlaveStartLog {
    std::mutex mutex;
    bool keeping = true;
    std::vector<std::string> lines;
};

// Starts the demo slave; on failure prints what the slave logged and returns false.
bool StartDemoSlave(ModbusClient& slave) {
    auto log = std::make_shared<SlaveStartLog>();
    slave.SetLogCallback([log](const std::string& line) {
        std::lock_guard<std::mutex> lock(log->mutex);
        if (log->keeping) log->lines.push_back(line);
    });
    ConnectionConfig config;
    config.transport = 0;
    config.role = 1;
    config.port = kDemoPort;
    config.unitId = 1;
    const bool ok = slave.Connect(config);
    std::vector<std::string> lines;
    {
        std::lock_guard<std::mutex> lock(log->mutex);
        log->keeping = false;
        lines.swap(log->lines);
    }
    if (!ok) {
        for (const std::string& line : lines) std::fprintf(stderr, "%s\n", line.c_str());
    }
    return ok;
}

int RunDemo(std::vector<std::string>& args) {
    const auto cycles = TakeOption(args, "--cycles");
    const auto interval = TakeOption(args, "--interval");
    PollSessionOptions options;
    try {
        options.mqtt = TakeMqttOptions(args);
    } catch (const UnreadableFile& error) {
        std::fprintf(stderr, "kestrel-cli: %s\n", error.what());
        return 1;
    }
    RejectUnknownOptions(args);
    if (!args.empty()) throw UsageError("unexpected argument '" + args.front() + "'");
    options.intervalMs = PollIntervalFromText(interval.value_or(kDefaultDemoInterval));
    if (options.intervalMs > kLongestDemoInterval) {
        throw UsageError("--interval must be at most " + std::to_string(kLongestDemoInterval) +
                         " ms: the demo slave drops a client that is silent for 500 ms");
    }
    if (cycles) options.cycles = static_cast<uint32_t>(ParseUnsigned(*cycles, "--cycles", 1, UINT32_MAX));
    options.logFrames = false;
    options.blankLineAfterCycle = true;
    InstallStopSignals();

    const std::string storePath = TemporaryStorePath();
    int status = 1;
    {
        StructureStore store(storePath);
        store.CreateDemoStructure();
        const std::vector<ModbusStructure> structures = store.Structures();
        options.structureId = structures.empty() ? 0 : structures.front().id;

        ModbusClient slave;
        if (StartDemoSlave(slave)) {
            // The device shows step n to poll cycle n + 1: its values change once per cycle.
            DemoDeviceSimulator simulator(slave.Image(), structures.front());
            simulator.Step(0);
            options.afterCycle = [&simulator](uint32_t cycle) { simulator.Step(cycle); };
            status = RunPollSession(store, options);
            slave.Disconnect();
        }
    }
    std::error_code ignored;
    std::filesystem::remove(storePath, ignored);
    std::filesystem::remove(storePath + ".tmp", ignored);
    return status;
}

}  // namespace

// What `kestrel-cli demo --help` prints after the usage (and the manual page shows).
const std::string kDemoHelp = std::string(
    "Serves the demo device with lively values from a slave on port 1502 and polls it like the Structures\n"
    "page, from a temporary structures file (yours is never touched). Prints like poll, a blank line after\n"
    "each cycle.\n"
    "\n"
    "Options:\n"
    "  --cycles N             stop after N cycles; default: run until Ctrl-C or SIGTERM\n"
    "  --interval MS          the poll interval, 100 to 400 ms (a silent client is dropped at 500 ms); default 250\n") +
    kMqttHelp +
    "Example:\n"
    "  kestrel-cli --lang en demo --cycles 3\n"
    "  kestrel-cli --lang en demo --mqtt --mqtt-broker tcp://127.0.0.1:1883 --mqtt-prefix demo\n";

const std::string kDemoUsage =
    std::string("  kestrel-cli [--lang en|de] demo [--cycles N] [--interval MS]\n") + kMqttUsage;

KESTREL_CLI_COMMAND(demo, "demo", kDemoUsage.c_str(), kDemoHelp.c_str(), RunDemo);

}  // namespace cli
