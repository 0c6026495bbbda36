#include "bridge/bridge_settings.h"

#include <cstdlib>

#include "model/app_settings.h"

namespace {

struct Scheme {
    const char* prefix;
    bool tls;
};

constexpr Scheme kSchemes[] = {{"tcp://", false}, {"mqtt://", false}, {"mqtts://", true}, {"ssl://", true}};

}  // namespace

std::optional<BrokerAddress> ParseBrokerUrl(const std::string& url, std::string& error) {
    BrokerAddress address;
    std::string rest = url;
    const size_t schemeEnd = url.find("://");
    if (schemeEnd != std::string::npos) {
        bool known = false;
        for (const Scheme& scheme : kSchemes) {
            if (url.rfind(scheme.prefix, 0) == 0) {
                known = true;
                address.tls = scheme.tls;
                rest = url.substr(std::string(scheme.prefix).size());
            }
        }
        if (!known) {
            error = "unknown scheme in broker URL '" + url + "' (tcp://, mqtt://, mqtts:// or ssl://)";
            return std::nullopt;
        }
    }
    if (!rest.empty() && rest.back() == '/') rest.pop_back();
    // [v6::addr]:port, host:port or host
    std::string portText;
    if (!rest.empty() && rest.front() == '[') {
        const size_t close = rest.find(']');
        if (close == std::string::npos) {
            error = "broker URL '" + url + "' has an unclosed '['";
            return std::nullopt;
        }
        address.host = rest.substr(1, close - 1);
        if (close + 1 < rest.size() && rest[close + 1] == ':') portText = rest.substr(close + 2);
    } else {
        const size_t colon = rest.rfind(':');
        address.host = rest.substr(0, colon);
        if (colon != std::string::npos) portText = rest.substr(colon + 1);
    }
    if (address.host.empty()) {
        error = "broker URL '" + url + "' names no host";
        return std::nullopt;
    }
    if (!portText.empty() || rest.find(':') != std::string::npos) {
        char* end = nullptr;
        const long port = std::strtol(portText.c_str(), &end, 10);
        if (portText.empty() || *end != '\0' || port < 1 || port > 65535) {
            error = "broker URL '" + url + "' has no valid port (1 to 65535)";
            return std::nullopt;
        }
        address.port = static_cast<uint16_t>(port);
    }
    return address;
}

std::string BrokerLabel(const MqttBridgeSettings& settings) {
    const std::string host = settings.host.find(':') != std::string::npos ? "[" + settings.host + "]" : settings.host;
    return (settings.tls ? "mqtts://" : "") + host + ":" + std::to_string(settings.port);
}

std::optional<MqttBridgeSettings> BridgeSettingsFromStored(const AppSettings& stored, std::string& error) {
    const std::optional<BrokerAddress> address = ParseBrokerUrl(stored.mqttBroker, error);
    if (!address) return std::nullopt;
    MqttBridgeSettings settings;
    settings.host = address->host;
    settings.tls = address->tls;
    const int32_t storedPort = stored.mqttPort >= 1 && stored.mqttPort <= 65535 ? stored.mqttPort : 1883;
    settings.port = address->port.value_or(static_cast<uint16_t>(storedPort));
    settings.clientId = stored.mqttClientId;
    settings.username = stored.mqttUsername;
    settings.password = stored.mqttPassword;
    settings.qos = stored.mqttQos >= 0 && stored.mqttQos <= 2 ? stored.mqttQos : 0;
    settings.topicPrefix = stored.mqttTopicPrefix;
    return settings;
}
