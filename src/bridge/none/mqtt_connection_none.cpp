// The stand-in of a build without an MQTT client library (the Windows build): nothing connects,
// and the command line refuses --mqtt before it gets here.
#include "bridge/mqtt_connection.h"

#include "common/localizer.h"

bool MqttAvailable() { return false; }

struct MqttConnection::Impl {
    LogCallback log;
};

MqttConnection::MqttConnection(MqttBridgeSettings, std::string, LogCallback log) : impl_(std::make_unique<Impl>()) {
    impl_->log = std::move(log);
}

MqttConnection::~MqttConnection() = default;

bool MqttConnection::Start() {
    if (impl_->log) {
        impl_->log(Localizer::Text(Localizer::Scope::Messages, "MQTT: this build has no MQTT bridge",
                                   "MQTT: dieser Build hat keine MQTT-Bruecke"));
    }
    return false;
}

void MqttConnection::Publish(std::string, std::string, bool) {}
void MqttConnection::Stop(uint32_t) {}
bool MqttConnection::Failed() const { return true; }
uint32_t MqttConnection::ConnectionCount() const { return 0; }
uint64_t MqttConnection::DeliveredCount() const { return 0; }
