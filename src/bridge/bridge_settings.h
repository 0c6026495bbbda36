#pragma once
// What the MQTT bridge connects to and how it publishes: the stored bridge fields of the settings,
// overridden for one run by the command line. The broker is given as a URL ("tcp://host",
// "mqtt://host:1883", "mqtts://host:8883", "ssl://host") or as a bare host name.
#include <cstdint>
#include <optional>
#include <string>

struct BrokerAddress {
    std::string host;
    std::optional<uint16_t> port;  // when the URL names one
    bool tls = false;              // mqtts:// and ssl://
};

// Parses a broker URL; nullopt and a reason in `error` for a scheme it does not know, an empty
// host or a port that is not 1..65535.
std::optional<BrokerAddress> ParseBrokerUrl(const std::string& url, std::string& error);

struct MqttBridgeSettings {
    std::string host;
    uint16_t port = 1883;
    bool tls = false;
    std::string caFile;  // the CA the broker's certificate must be signed by (TLS only)
    std::string clientId = "Kestrel";
    std::string username;  // empty: no login
    std::string password;
    int qos = 0;                // 0, 1 or 2
    std::string topicPrefix = "modbus";
    bool retainValues = false;  // --mqtt-retain
    bool onChangeOnly = false;  // --mqtt-on-change
    size_t queueLimit = 10000;  // messages kept while the broker is away (QoS 1 and 2)
};

// "host:port", and "mqtts://host:port" for TLS, for the bridge's messages.
std::string BrokerLabel(const MqttBridgeSettings& settings);

struct AppSettings;
// The stored bridge fields as bridge settings (the broker URL parsed; its port, when it names one,
// wins over the stored port); nullopt and `error` when the stored URL does not parse.
std::optional<MqttBridgeSettings> BridgeSettingsFromStored(const AppSettings& stored, std::string& error);
