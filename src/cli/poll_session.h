#pragma once
// Structure polling on the command line, shared by `poll` and `demo`: polls one structure of a
// store exactly as the Structures page does, prints what its "Live Values" box would show and the
// alarm events as they are raised, and writes the recording and the trace when asked. A structure
// with its rtuOverTcp flag set is polled with RTU frames over TCP.
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "bridge/bridge_settings.h"
#include "model/structure_store.h"

namespace cli {

struct PollSessionOptions {
    int32_t structureId = 0;
    uint32_t intervalMs = 1000;
    std::optional<uint32_t> cycles;  // none: until SIGINT or SIGTERM
    std::optional<std::string> csvPath;
    std::optional<std::string> pcapPath;
    bool logFrames = true;          // TX/RX lines of the connection log on stderr (other lines always)
    bool blankLineAfterCycle = false;
    // With a value: every cycle's values and every alarm event are also published to this broker.
    std::optional<MqttBridgeSettings> mqtt;
    // Called on the poll thread after each cycle was printed, with the cycle's number (1, 2, ...).
    std::function<void(uint32_t)> afterCycle;
};

// Returns the exit status: 0 after a clean stop, 1 when polling could not start, an output file
// could not be written or the MQTT broker refused the bridge; 2 when two details of the structure
// would publish on the same MQTT topic.
int RunPollSession(StructureStore& store, const PollSessionOptions& options);

// "[12:00:01] Schwellenwert Alarm | Temperatur | Temperatur > 100.000000 (ist: 104.30 °C)"
std::string AlarmLine(int64_t timestampMs, int32_t type, const std::string& detail, const std::string& message);

}  // namespace cli
