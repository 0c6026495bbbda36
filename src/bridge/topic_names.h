#pragma once
// The topics a polled structure is published under:
//   <prefix>/<structure>/<detail>   one per detail, its value after each cycle
//   <prefix>/<structure>/alarms     each alarm event as it is raised
//   <prefix>/<structure>/status     "online" / "offline"
// A level made from a name keeps the name as it is (spaces, umlauts) except for what MQTT forbids
// or reads as structure: '/', '+', '#', NUL and the other control characters become '_'.
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "model/structure.h"

// One topic level from a name: '/', '+', '#', control characters (C0, DEL, C1) and bytes that are
// not UTF-8 become '_'; so do the code points MQTT does not allow in a topic (U+FFFE, U+FFFF and
// the other non-characters).
std::string TopicLevel(const std::string& name);

// A prefix may span several levels ("plant/hall 2"), but it must not hold a wildcard or a control
// character; empty when it is fine, else the reason.
std::string CheckTopicPrefix(const std::string& prefix);

struct StructureTopics {
    std::map<int32_t, std::string> details;  // by detail id
    std::string alarms;
    std::string status;
};

// The topics of a structure; nullopt with `error` naming both sides when two details (or a detail
// and the alarms or status topic) map to the same topic. An empty prefix leaves the prefix level out.
std::optional<StructureTopics> BuildStructureTopics(const std::string& prefix, const ModbusStructure& structure,
                                                    std::string& error);
