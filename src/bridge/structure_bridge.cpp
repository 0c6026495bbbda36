#include "bridge/structure_bridge.h"

#include "bridge/payloads.h"

StructureBridge::StructureBridge(MqttConnection& connection, const ModbusStructure& structure, StructureTopics topics,
                                 const MqttBridgeSettings& settings)
    : connection(connection), topics(std::move(topics)), retainValues(settings.retainValues),
      onChangeOnly(settings.onChangeOnly), qosZero(settings.qos == 0) {
    for (const Modbus::ModbusDetail& detail : structure.details) details[detail.id] = detail;
}

bool StructureBridge::Changed(int32_t detailId, const std::string& valueKey) {
    auto [at, inserted] = lastPublished.emplace(detailId, valueKey);
    if (inserted) return true;
    if (at->second == valueKey) return false;
    at->second = valueKey;
    return true;
}

void StructureBridge::PublishCycle(const std::vector<Modbus::PollingResult>& results, int64_t timeMs) {
    // At QoS 0 nothing waits for a broker that was away: after a new connection every value is
    // published once again, so on-change subscribers are not left with what they last saw.
    if (qosZero && connection.ConnectionCount() != connectionsSeen) {
        connectionsSeen = connection.ConnectionCount();
        lastPublished.clear();
    }
    for (const Modbus::PollingResult& result : results) {
        const auto detail = details.find(result.detailId);
        const auto topic = topics.details.find(result.detailId);
        if (detail == details.end() || topic == topics.details.end()) continue;
        if (onChangeOnly) {
            const std::string key = ValueJson(detail->second, result) + '\n' + LiveValueText(result) + '\n' +
                                    (IsValidResult(result) ? "1" : "0");
            if (!Changed(result.detailId, key)) continue;
        }
        connection.Publish(topic->second, ValuePayload(detail->second, result, timeMs), retainValues);
    }
}

void StructureBridge::PublishAlarm(const Modbus::AlarmEvent& event) {
    connection.Publish(topics.alarms, AlarmPayload(event), false);
}
