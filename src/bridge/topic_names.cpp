#include "bridge/topic_names.h"

#include "bridge/utf8_text.h"

namespace {

// What the broker refuses in a topic besides the wildcards: control characters and non-characters.
bool IsForbiddenCodePoint(uint32_t c) {
    if (c <= 0x1F || (c >= 0x7F && c <= 0x9F)) return true;
    if (c >= 0xFDD0 && c <= 0xFDEF) return true;
    return (c & 0xFFFF) == 0xFFFE || (c & 0xFFFF) == 0xFFFF;
}

}  // namespace

std::string TopicLevel(const std::string& name) {
    std::string level;
    level.reserve(name.size());
    for (size_t at = 0; at < name.size();) {
        uint32_t codePoint = 0;
        const size_t length = Utf8SequenceAt(name, at, codePoint);
        if (length == 0) {
            level += '_';  // one '_' per byte that is not UTF-8
            ++at;
            continue;
        }
        if (codePoint == '/' || codePoint == '+' || codePoint == '#' || IsForbiddenCodePoint(codePoint)) {
            level += '_';
        } else {
            level.append(name, at, length);
        }
        at += length;
    }
    return level;
}

std::string CheckTopicPrefix(const std::string& prefix) {
    for (size_t at = 0; at < prefix.size();) {
        uint32_t codePoint = 0;
        const size_t length = Utf8SequenceAt(prefix, at, codePoint);
        if (length == 0) return "the topic prefix is not UTF-8 text";
        if (codePoint == '+' || codePoint == '#') return "the topic prefix must not contain the wildcards + or #";
        if (IsForbiddenCodePoint(codePoint)) return "the topic prefix must not contain control characters";
        at += length;
    }
    return "";
}

std::optional<StructureTopics> BuildStructureTopics(const std::string& prefix, const ModbusStructure& structure,
                                                    std::string& error) {
    const std::string base = (prefix.empty() ? "" : prefix + "/") + TopicLevel(structure.name) + "/";
    StructureTopics topics;
    topics.alarms = base + "alarms";
    topics.status = base + "status";
    // Who already owns a topic, to name both sides of a clash.
    std::map<std::string, std::string> owners = {{topics.alarms, "the alarms topic"},
                                                 {topics.status, "the status topic"}};
    for (const Modbus::ModbusDetail& detail : structure.details) {
        const std::string topic = base + TopicLevel(detail.name);
        const std::string owner = "detail '" + detail.name + "' (id " + std::to_string(detail.id) + ")";
        const auto [at, inserted] = owners.emplace(topic, owner);
        if (!inserted) {
            error = owner + " and " + at->second + " map to the same topic '" + topic + "'";
            return std::nullopt;
        }
        topics.details[detail.id] = topic;
    }
    return topics;
}
