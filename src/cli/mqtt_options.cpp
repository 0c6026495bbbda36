#include "cli/mqtt_options.h"

#include <fstream>
#include <map>

#include "bridge/mqtt_connection.h"
#include "bridge/topic_names.h"
#include "cli/command.h"
#include "model/app_settings.h"

namespace cli {

// The usage's second line (under the command's first) and the help's option lines.
const char* const kMqttUsage =
    "              [--mqtt [--mqtt-broker URL] [--mqtt-port N] [--mqtt-qos 0|1|2] [--mqtt-prefix P] [--mqtt-client-id ID]\n"
    "                      [--mqtt-user U] [--mqtt-password-file F] [--mqtt-ca F] [--mqtt-retain] [--mqtt-on-change]\n"
    "                      [--mqtt-queue N]]\n";

const char* const kMqttHelp =
    "  --mqtt                 also publish every value after each cycle, and each alarm, to an MQTT broker: the\n"
    "                         stored bridge settings (whatever their enabled flag says) with the options below\n"
    "  --mqtt-broker URL      tcp://HOST[:PORT] or mqtts://HOST[:PORT] (TLS); default the stored mqtt_broker\n"
    "  --mqtt-port N          the broker's port, over the URL's; default the URL's port, else the stored mqtt_port\n"
    "  --mqtt-qos 0|1|2       the quality of service of every message; default the stored mqtt_qos\n"
    "  --mqtt-prefix P        the first topic level(s): P/STRUCTURE/DETAIL, P/STRUCTURE/alarms, P/STRUCTURE/status;\n"
    "                         default the stored mqtt_topic_prefix\n"
    "  --mqtt-client-id ID    the MQTT client id (one per bridge on a broker); default the stored mqtt_client_id\n"
    "  --mqtt-user U          log in as U; default the stored mqtt_username (empty: no login)\n"
    "  --mqtt-password-file F  the password is F's first line (never on the command line); default the stored one\n"
    "  --mqtt-ca F            TLS: verify the broker's certificate with this CA file; default the system's CAs\n"
    "  --mqtt-retain          publish the values retained; default not retained\n"
    "  --mqtt-on-change       publish a detail only when its value changed (and once at start); default every cycle\n"
    "  --mqtt-queue N         QoS 1/2: messages kept while the broker is away, the oldest dropped; default 10000\n";

namespace {

const char* const kMqttValueOptions[] = {"--mqtt-broker", "--mqtt-port",          "--mqtt-qos",
                                         "--mqtt-prefix", "--mqtt-client-id",     "--mqtt-user",
                                         "--mqtt-ca",     "--mqtt-password-file", "--mqtt-queue"};
const char* const kMqttFlags[] = {"--mqtt-retain", "--mqtt-on-change"};

std::string ReadFirstLine(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw UnreadableFile(path + ": cannot read the password file");
    std::string line;
    std::getline(file, line);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

}  // namespace

std::optional<MqttBridgeSettings> TakeMqttOptions(std::vector<std::string>& args) {
    const bool wanted = TakeFlag(args, "--mqtt");
    std::map<std::string, std::string> values;
    for (const char* option : kMqttValueOptions) {
        if (auto value = TakeOption(args, option)) values[option] = *value;
    }
    bool retain = false, onChange = false;
    for (const char* flag : kMqttFlags) {
        if (TakeFlag(args, flag)) (std::string(flag) == "--mqtt-retain" ? retain : onChange) = true;
    }
    if (!wanted) {
        if (!values.empty()) throw UsageError(values.begin()->first + " needs --mqtt");
        if (retain) throw UsageError("--mqtt-retain needs --mqtt");
        if (onChange) throw UsageError("--mqtt-on-change needs --mqtt");
        return std::nullopt;
    }
    if (!MqttAvailable()) throw UsageError("--mqtt: this build of kestrel-cli has no MQTT bridge");

    AppSettings stored;
    LoadSettings(stored);
    if (values.count("--mqtt-broker")) stored.mqttBroker = values["--mqtt-broker"];
    std::string error;
    std::optional<MqttBridgeSettings> settings = BridgeSettingsFromStored(stored, error);
    if (!settings) throw UsageError(values.count("--mqtt-broker") ? "--mqtt-broker: " + error : "mqtt_broker: " + error);
    if (values.count("--mqtt-port")) {
        settings->port = static_cast<uint16_t>(ParseUnsigned(values["--mqtt-port"], "--mqtt-port", 1, 65535));
    }
    if (values.count("--mqtt-qos")) settings->qos = static_cast<int>(ParseUnsigned(values["--mqtt-qos"], "--mqtt-qos", 0, 2));
    if (values.count("--mqtt-prefix")) settings->topicPrefix = values["--mqtt-prefix"];
    if (const std::string problem = CheckTopicPrefix(settings->topicPrefix); !problem.empty()) {
        throw UsageError(problem + ": '" + settings->topicPrefix + "'");
    }
    if (values.count("--mqtt-client-id")) settings->clientId = values["--mqtt-client-id"];
    if (values.count("--mqtt-user")) settings->username = values["--mqtt-user"];
    if (values.count("--mqtt-password-file")) {
        if (settings->username.empty()) {
            throw UsageError("--mqtt-password-file needs a user name (--mqtt-user or the stored mqtt_username)");
        }
        settings->password = ReadFirstLine(values["--mqtt-password-file"]);
    }
    if (values.count("--mqtt-ca")) {
        settings->caFile = values["--mqtt-ca"];
        settings->tls = true;
    }
    if (values.count("--mqtt-queue")) {
        settings->queueLimit = static_cast<size_t>(ParseUnsigned(values["--mqtt-queue"], "--mqtt-queue", 1, 100000000));
    }
    settings->retainValues = retain;
    settings->onChangeOnly = onChange;
    return settings;
}

}  // namespace cli
