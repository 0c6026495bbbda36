#include "model/app_settings.h"

#include "common/localizer.h"
#include "platform/settings_store.h"

namespace {

int32_t DwordOr(platform::SettingsKey& key, const char* name, int32_t fallback) {
    uint32_t value = 0;
    return key.QueryDword(name, value) ? static_cast<int32_t>(value) : fallback;
}

std::string StringOr(platform::SettingsKey& key, const char* name, const char* fallback) {
    std::string value;
    return key.QueryString(name, value) ? value : std::string(fallback);
}

}  // namespace

void LoadSettings(AppSettings& settings) {
    const auto key = platform::OpenSettingsForRead();
    if (!key) return;
    settings.themeMode = DwordOr(*key, "theme_mode", 0);
    settings.language = DwordOr(*key, "language", 0);
    settings.mqttEnabled = DwordOr(*key, "mqtt_enabled", 0) != 0;
    settings.mqttBroker = StringOr(*key, "mqtt_broker", kDefaultMqttBroker);
    settings.mqttPort = DwordOr(*key, "mqtt_port", 1883);
    settings.mqttTopicPrefix = StringOr(*key, "mqtt_topic_prefix", "modbus");
    settings.mqttClientId = StringOr(*key, "mqtt_client_id", "Kestrel");
    settings.mqttUsername = StringOr(*key, "mqtt_username", "");
    settings.mqttPassword = StringOr(*key, "mqtt_password", "");
    settings.mqttQos = DwordOr(*key, "mqtt_qos", 0);
}

void SaveSettings(const AppSettings& settings) {
    const auto key = platform::OpenSettingsForWrite();
    if (!key) return;
    key->SetDword("theme_mode", static_cast<uint32_t>(settings.themeMode));
    key->SetDword("language", static_cast<uint32_t>(settings.language));
    key->SetDword("mqtt_enabled", settings.mqttEnabled ? 1 : 0);
    key->SetString("mqtt_broker", settings.mqttBroker);
    key->SetDword("mqtt_port", static_cast<uint32_t>(settings.mqttPort));
    key->SetString("mqtt_topic_prefix", settings.mqttTopicPrefix);
    key->SetString("mqtt_client_id", settings.mqttClientId);
    key->SetString("mqtt_username", settings.mqttUsername);
    key->SetString("mqtt_password", settings.mqttPassword);
    key->SetDword("mqtt_qos", static_cast<uint32_t>(settings.mqttQos));
}

void ApplyLanguageFlags(const AppSettings& settings) { Localizer::SetAllLanguages(settings.language); }

void ValidateSettings(AppSettings& settings) {
    if (settings.mqttPort < 1 || settings.mqttPort > 65535) settings.mqttPort = 1883;
    if (settings.mqttQos < 0 || settings.mqttQos > 2) settings.mqttQos = 0;
}
