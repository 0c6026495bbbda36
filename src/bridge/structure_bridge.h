#pragma once
// What a polled structure publishes: after each cycle every detail's value on its topic (or, with
// on-change, only the values that changed), and each alarm event as it is raised. Runs on the poll
// thread; hands the messages to the MQTT connection's queue.
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "bridge/mqtt_connection.h"
#include "bridge/topic_names.h"
#include "model/alarm_engine.h"
#include "model/structure.h"
#include "polling/polling_engine.h"

class StructureBridge {
public:
    // `topics` from BuildStructureTopics for the same structure.
    StructureBridge(MqttConnection& connection, const ModbusStructure& structure, StructureTopics topics,
                    const MqttBridgeSettings& settings);

    // The values of one cycle, stamped with `timeMs` (ms since 1970-01-01 UTC).
    void PublishCycle(const std::vector<Modbus::PollingResult>& results, int64_t timeMs);
    void PublishAlarm(const Modbus::AlarmEvent& event);

private:
    // With on-change: true when the value differs from the last one published (or none was).
    bool Changed(int32_t detailId, const std::string& valueKey);

    MqttConnection& connection;
    std::map<int32_t, Modbus::ModbusDetail> details;
    StructureTopics topics;
    bool retainValues;
    bool onChangeOnly;
    bool qosZero;
    std::map<int32_t, std::string> lastPublished;  // value key by detail id
    uint32_t connectionsSeen = 0;
};
