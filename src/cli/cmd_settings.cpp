// kestrel-cli settings: shows and changes the stored settings the window reads at start-up (the
// registry on Windows, a small file in the user's configuration folder elsewhere).
#include <cstdio>
#include <string>
#include <vector>

#include "cli/command.h"
#include "common/localizer.h"
#include "model/app_settings.h"
#include "platform/settings_store.h"

namespace cli {
namespace {

const char* Ui(const char* english, const char* german) {
    return Localizer::Text(Localizer::Scope::Ui, english, german);
}

void PrintSettings(const AppSettings& s) {
    std::printf("theme_mode=%d\n", s.themeMode);
    std::printf("language=%d\n", s.language);
    std::printf("mqtt_enabled=%d\n", s.mqttEnabled ? 1 : 0);
    std::printf("mqtt_broker=%s\n", s.mqttBroker.c_str());
    std::printf("mqtt_port=%d\n", s.mqttPort);
    std::printf("mqtt_topic_prefix=%s\n", s.mqttTopicPrefix.c_str());
    std::printf("mqtt_client_id=%s\n", s.mqttClientId.c_str());
    std::printf("mqtt_username=%s\n", s.mqttUsername.c_str());
    // Stored in plain text, but not shown over someone's shoulder.
    std::printf("mqtt_password=%s\n", s.mqttPassword.empty() ? "" : "********");
    std::printf("mqtt_qos=%d\n", s.mqttQos);
}

int32_t TakeNumber(const std::string& key, const std::string& value, int64_t min, int64_t max) {
    // Checked here as well: the range is the point of the check, whichever sign the text has.
    const int64_t number = ParseSigned(value, key, min, max);
    if (number < min || number > max) {
        throw UsageError(key + " must be from " + std::to_string(min) + " to " + std::to_string(max) + ", not '" +
                         value + "'");
    }
    return static_cast<int32_t>(number);
}

void SetValue(AppSettings& s, const std::string& key, const std::string& value) {
    if (key == "theme_mode") {
        s.themeMode = TakeNumber(key, value, 0, 2);
    } else if (key == "language") {
        if (value == "en") s.language = 1;
        else if (value == "de") s.language = 0;
        else s.language = TakeNumber(key, value, 0, 1);
    } else if (key == "mqtt_enabled") {
        if (value == "true") s.mqttEnabled = true;
        else if (value == "false") s.mqttEnabled = false;
        else s.mqttEnabled = TakeNumber(key, value, 0, 1) != 0;
    } else if (key == "mqtt_broker") {
        s.mqttBroker = value;
    } else if (key == "mqtt_port") {
        s.mqttPort = TakeNumber(key, value, 1, 65535);
    } else if (key == "mqtt_topic_prefix") {
        s.mqttTopicPrefix = value;
    } else if (key == "mqtt_client_id") {
        s.mqttClientId = value;
    } else if (key == "mqtt_username") {
        s.mqttUsername = value;
    } else if (key == "mqtt_password") {
        s.mqttPassword = value;
    } else if (key == "mqtt_qos") {
        s.mqttQos = TakeNumber(key, value, 0, 2);
    } else {
        throw UsageError("unknown setting '" + key +
                         "' (theme_mode, language, mqtt_enabled, mqtt_broker, mqtt_port, mqtt_topic_prefix, "
                         "mqtt_client_id, mqtt_username, mqtt_password, mqtt_qos)");
    }
}

int RunSettings(std::vector<std::string>& args) {
    RejectUnknownOptions(args);
    if (args.empty()) throw UsageError("settings needs show or set KEY VALUE");
    const std::string action = args.front();
    AppSettings settings;
    if (action == "show") {
        if (args.size() != 1) throw UsageError("settings show takes no further arguments");
        if (!platform::OpenSettingsForRead()) {
            std::fprintf(stderr, "%s %s\n", Ui("Nothing stored yet, these are the defaults:",
                                               "Noch nichts gespeichert, dies sind die Voreinstellungen:"),
                         platform::SettingsLocation().c_str());
        }
        LoadSettings(settings);
        PrintSettings(settings);
        return 0;
    }
    if (action == "set") {
        if (args.size() != 3) throw UsageError("settings set needs KEY VALUE");
        LoadSettings(settings);
        SetValue(settings, args[1], args[2]);
        SaveSettings(settings);
        // Read back, so that a store that could not be written does not go unnoticed.
        AppSettings stored;
        LoadSettings(stored);
        if (!platform::OpenSettingsForRead() || !(stored == settings)) {
            std::fprintf(stderr, "kestrel-cli: %s: %s\n", platform::SettingsLocation().c_str(),
                         Ui("the settings could not be saved", "die Einstellungen konnten nicht gespeichert werden"));
            return 1;
        }
        std::fprintf(stderr, "%s\n", Ui("Saved; theme and language take effect at the next start.",
                                         "Gespeichert; Theme und Sprache gelten ab dem naechsten Start."));
        return 0;
    }
    throw UsageError("settings needs show or set KEY VALUE, not '" + action + "'");
}

}  // namespace

// What `kestrel-cli settings --help` prints after the usage (and the manual page shows).
constexpr char kSettingsHelp[] =
    "Shows and changes the stored settings the window reads at start-up: a file in the user's configuration\n"
    "folder (~/.config/kestrel/settings), on Windows the registry key HKEY_CURRENT_USER\\Software\\Kestrel.\n"
    "\n"
    "Actions:\n"
    "  show                   every setting as KEY=VALUE (the password hidden); the defaults while nothing is stored\n"
    "  set KEY VALUE          stores one setting; the window takes it at its next start\n"
    "Keys:\n"
    "  theme_mode             0 system, 1 light, 2 dark; default 0\n"
    "  language               0 or de for German, 1 or en for English; default 0\n"
    "  mqtt_enabled           0 or false, 1 or true; default 0\n"
    "  mqtt_broker            the MQTT broker's address; default tcp://broker.hivemq.com\n"
    "  mqtt_port              1 to 65535; default 1883\n"
    "  mqtt_topic_prefix      default modbus\n"
    "  mqtt_client_id         default Kestrel\n"
    "  mqtt_username          default empty\n"
    "  mqtt_password          stored in plain text; default empty\n"
    "  mqtt_qos               0, 1 or 2; default 0\n"
    "Example:\n"
    "  kestrel-cli settings set language en\n"
    "  kestrel-cli settings show\n";

KESTREL_CLI_COMMAND(settings, "settings", "  kestrel-cli [--lang en|de] settings show | set KEY VALUE\n", kSettingsHelp,
                    RunSettings);

}  // namespace cli
