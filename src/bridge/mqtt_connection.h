#pragma once
// The bridge's connection to an MQTT broker. It owns one thread that does all of the talking to
// the broker through the MQTT client library; the poll thread only hands it messages through a
// bounded queue (Publish never waits for the network). The thread connects, reconnects with a
// growing pause when the broker is away, puts "online" on the status topic once connected and
// leaves "offline" there as the broker's last will and on a clean stop.
//
// Builds without an MQTT client library (the Windows build) have a stand-in whose Start says so.
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "bridge/bridge_settings.h"

// False in a build without the MQTT client library.
bool MqttAvailable();

class MqttConnection {
public:
    using LogCallback = std::function<void(const std::string&)>;

    // `log` receives one line per change of the connection's state (connected, not reachable,
    // lost), the report of dropped messages and the reason of a failure; it is called on the
    // bridge thread and on the thread that calls Start and Stop.
    MqttConnection(MqttBridgeSettings settings, std::string statusTopic, LogCallback log);
    ~MqttConnection();  // stops without waiting for the broker when Stop was not called
    MqttConnection(const MqttConnection&) = delete;
    MqttConnection& operator=(const MqttConnection&) = delete;

    // Starts the bridge thread and waits up to a few seconds for the first connection attempt to
    // end, so that a refused login or a certificate that does not verify is known before polling
    // starts. False when the bridge cannot run (see Failed); a broker that is simply not reachable
    // is not a failure: the thread keeps trying.
    bool Start();

    // Queues a message for the broker, at the bridge's QoS. At QoS 0 a message produced while the
    // broker is away is not kept.
    void Publish(std::string topic, std::string payload, bool retain);

    // Puts "offline" on the status topic, delivers what is queued while the broker is reachable,
    // for at most `drainMs`, disconnects and joins the thread.
    void Stop(uint32_t drainMs = 5000);

    // Set for good when the broker refused the login or its certificate did not verify, or when
    // the client could not be set up; the run has to end. The reason went to the log callback.
    bool Failed() const;
    // Counts connections made so far; a change tells that the broker may have missed messages.
    uint32_t ConnectionCount() const;
    // Messages the broker has taken (acknowledged at QoS 1 and 2, written at QoS 0).
    uint64_t DeliveredCount() const;

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
};
