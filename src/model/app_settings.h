#pragma once
// The one settings record of the process: theme, interface language and the fields of the MQTT
// bridge (configured only; nothing is ever sent). Stored through the platform's settings store
// (the registry under HKEY_CURRENT_USER\Software\Kestrel on Windows), read once at start-up and
// written when the settings dialog is confirmed.
#include <cstdint>
#include <string>

// A public test broker; the bridge is not connected, so this is only the preset shown in the dialog.
inline constexpr const char* kDefaultMqttBroker = "tcp://broker.hivemq.com";

struct AppSettings {
    int32_t themeMode = 0;  // 0 System, 1 Light, 2 Dark
    int32_t language = 0;   // 0 German, any non-zero value English
    bool mqttEnabled = false;
    std::string mqttBroker = kDefaultMqttBroker;
    int32_t mqttPort = 1883;
    std::string mqttTopicPrefix = "modbus";
    std::string mqttClientId = "Kestrel";
    std::string mqttUsername;
    std::string mqttPassword;  // stored in plain text
    int32_t mqttQos = 0;       // 0, 1 or 2

    friend bool operator==(const AppSettings&, const AppSettings&) = default;
};

// Reads the stored values into `settings`. Without a stored key the record is left as it is and
// nothing is created; with one, every field takes its stored value or, when that value is
// missing, its default (0 for the DWORD values theme_mode, language, mqtt_enabled and mqtt_qos,
// 1883 for mqtt_port). No range checks.
void LoadSettings(AppSettings& settings);
// Creates the key if needed and writes every value; failures are silent.
void SaveSettings(const AppSettings& settings);
// Copies the language into the three process-wide language flags.
void ApplyLanguageFlags(const AppSettings& settings);
// The validation the settings dialog applies before saving: a port outside 1..65535 becomes 1883,
// a QoS outside 0..2 becomes 0.
void ValidateSettings(AppSettings& settings);
