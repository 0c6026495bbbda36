#pragma once
// The --mqtt options of `poll` and `demo`: the stored bridge fields, overridden for one run.
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "bridge/bridge_settings.h"

namespace cli {

// A file named by an option that cannot be read: a message and exit 1 (not a usage error).
struct UnreadableFile : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The usage tail and the help lines both commands share.
extern const char* const kMqttUsage;
extern const char* const kMqttHelp;

// Takes --mqtt and every --mqtt-* option out of `args`. Without --mqtt: nullopt (and a UsageError
// when an --mqtt-* option came alone). With it: the stored settings with the options applied; a
// UsageError for a bad value, or when this build has no MQTT; UnreadableFile for a password file
// that cannot be read.
std::optional<MqttBridgeSettings> TakeMqttOptions(std::vector<std::string>& args);

}  // namespace cli
