#include "cli/poll_session.h"

#include <atomic>
#include <cstdio>
#include <memory>

#include "bridge/mqtt_connection.h"
#include "bridge/structure_bridge.h"
#include "cli/command.h"
#include "model/alarm_engine.h"
#include "platform/clock.h"
#include "platform/file_io.h"
#include "polling/structure_polling.h"
#include "protocol/trace_log.h"

namespace cli {
namespace {

bool WriteFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::FILE* file = platform::OpenFile(path, "wb");
    if (file == nullptr) return false;
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    if (std::fclose(file) == 0 && written) return true;
    platform::RemoveFile(path);  // no half capture file is left behind
    return false;
}

bool IsFrameLine(const std::string& line) { return line.rfind("TX: ", 0) == 0 || line.rfind("RX: ", 0) == 0; }

bool ConnectRtuOverTcp(ModbusClient& connection, const ModbusStructure& structure, ModbusClient::LogCallback log) {
    connection.SetLogCallback(std::move(log));
    ConnectionConfig config;
    config.transport = kTransportRtuOverTcp;
    config.role = 0;
    config.ipAddress = structure.ip;
    config.port = structure.port;
    config.unitId = structure.unitId;
    return connection.Connect(config);
}

// The MQTT side of a session: the connection to the broker and what the structure publishes on it.
struct SessionBridge {
    std::unique_ptr<MqttConnection> connection;
    std::unique_ptr<StructureBridge> publisher;
};

// Connects the bridge before polling starts; nullopt with the exit status when it cannot run:
// 2 for topics that clash, 1 for a broker that refused it (the reason is already on stderr).
std::optional<int> StartSessionBridge(const MqttBridgeSettings& settings, const ModbusStructure& structure,
                                      SessionBridge& bridge) {
    std::string error;
    std::optional<StructureTopics> topics = BuildStructureTopics(settings.topicPrefix, structure, error);
    if (!topics) {
        std::fprintf(stderr, "kestrel-cli: %s\n", error.c_str());
        return 2;
    }
    bridge.connection = std::make_unique<MqttConnection>(
        settings, topics->status, [](const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); });
    if (!bridge.connection->Start()) return 1;
    bridge.publisher = std::make_unique<StructureBridge>(*bridge.connection, structure, std::move(*topics), settings);
    return std::nullopt;
}

}  // namespace

std::string AlarmLine(int64_t timestampMs, int32_t type, const std::string& detail, const std::string& message) {
    std::string line = "[";
    line += Modbus::FormatAlarmTime(timestampMs);
    line += "] ";
    line += Modbus::AlarmKindName(type);
    line += " | ";
    line += detail;
    line += " | ";
    line += message;
    return line;
}

int RunPollSession(StructureStore& store, const PollSessionOptions& options) {
    ModbusClient connection;
    PollingEngine engine;
    AlarmEngine alarms;
    RecordingBuffer recording;
    const StructurePolling polling{store, connection, engine, alarms, recording};

    const std::optional<ModbusStructure> structure = store.FindStructure(options.structureId);
    SessionBridge bridge;
    if (options.mqtt && structure && !structure->details.empty()) {
        if (const std::optional<int> status = StartSessionBridge(*options.mqtt, *structure, bridge)) return *status;
    }
    StructureBridge* publisher = bridge.publisher.get();
    alarms.SetAlarmCallback([publisher](const Modbus::AlarmEvent& event) {
        std::printf("%s\n", AlarmLine(event.timestamp, event.type, event.detailName, event.message).c_str());
        if (publisher) publisher->PublishAlarm(event);
    });
    if (options.csvPath) recording.ToggleRecording(structure ? structure->name : DefaultRecordingName());

    std::atomic<uint32_t> cyclesDone{0};
    const bool logFrames = options.logFrames;
    auto log = [logFrames](const std::string& line) {
        if (!logFrames && IsFrameLine(line)) return;
        std::fprintf(stderr, "%s\n", line.c_str());
    };
    auto handOff = [&options, &cyclesDone, publisher](const std::vector<Modbus::PollingResult>& results) {
        const uint32_t cycle = ++cyclesDone;
        if (options.cycles && cycle > *options.cycles) return;  // a cycle that began before the stop
        if (publisher) publisher->PublishCycle(results, platform::UnixTimeMilliseconds());
        std::string text;
        for (const Modbus::PollingResult& result : results) text += LiveValueLine(result) + "\n";
        if (options.blankLineAfterCycle) text += "\n";
        std::fputs(text.c_str(), stdout);
        std::fflush(stdout);
        if (options.afterCycle) options.afterCycle(cycle);
    };

    // A structure whose device speaks RTU over TCP is connected that way here; structure polling
    // then uses the connection as it finds it. (The window's polling frames Modbus TCP whatever the
    // flag says.)
    if (structure && structure->rtuOverTcp && !structure->details.empty() &&
        !ConnectRtuOverTcp(connection, *structure, log)) {
        std::fprintf(stderr, "kestrel-cli: %s\n", StructurePollStartMessage(StructurePollStart::ConnectionFailed).c_str());
        connection.SetLogCallback(nullptr);
        if (bridge.connection) bridge.connection->Stop(5000);
        return 1;
    }
    const StructurePollStart start = StartStructurePolling(polling, options.structureId, options.intervalMs, log, handOff);
    if (start != StructurePollStart::Started) {
        std::fprintf(stderr, "kestrel-cli: %s\n", StructurePollStartMessage(start).c_str());
        connection.SetLogCallback(nullptr);
        if (bridge.connection) bridge.connection->Stop(5000);
        return 1;
    }
    // Bounded by the cycle count, a stop signal or a broker that refused the bridge; checked every 20 ms.
    const auto bridgeFailed = [&bridge] { return bridge.connection && bridge.connection->Failed(); };
    while (!StopRequested() && (!options.cycles || cyclesDone.load() < *options.cycles) && !bridgeFailed()) {
        platform::SleepMilliseconds(20);
    }
    StopStructurePolling(polling);
    connection.SetLogCallback(nullptr);

    int status = 0;
    if (bridgeFailed()) {
        status = 1;
    } else if (bridge.connection) {
        bridge.connection->Stop(5000);  // "offline", and what is still queued, for at most 5 s
    }
    if (options.csvPath && !recording.ExportCsv(*options.csvPath)) {
        std::fprintf(stderr, "kestrel-cli: %s: cannot write the CSV file\n", options.csvPath->c_str());
        status = 1;
    }
    if (options.pcapPath && structure &&
        !WriteFile(*options.pcapPath, GlobalTraceLog().BuildPcap(structure->ip, structure->port))) {
        std::fprintf(stderr, "kestrel-cli: %s: cannot write the PCAP file\n", options.pcapPath->c_str());
        status = 1;
    }
    return status;
}

}  // namespace cli
