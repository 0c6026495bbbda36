#include "model/alarm_engine.h"

#include <cstdio>

#include "common/localizer.h"
#include "platform/clock.h"

namespace Modbus {

const char* AlarmKindName(int32_t type) {
    switch (type) {
        case kAlarmWarning: return "Schwellenwert Warnung";
        case kAlarmThreshold: return "Schwellenwert Alarm";
        case kAlarmValueChanged: return "Wert geaendert";
        case kAlarmConnectionLost: return "Verbindung verloren";
        default: return "?";
    }
}

std::string FormatAlarmTime(int64_t timestampMs) {
    // Floor division, so times before 1970 still give a time of day in range.
    int64_t seconds = timestampMs / 1000;
    if (timestampMs % 1000 < 0) --seconds;
    int64_t ofDay = seconds % 86400;
    if (ofDay < 0) ofDay += 86400;
    char text[16];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d", static_cast<int>(ofDay / 3600), static_cast<int>(ofDay / 60 % 60),
                  static_cast<int>(ofDay % 60));
    return text;
}

}  // namespace Modbus

namespace {

std::string PrintF(const char* format, double value) {
    char text[512];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

bool Messages() { return Localizer::IsEnglish(Localizer::Scope::Messages); }

// name + " > " + limit + " (is: " + value + ")"
std::string LimitMessage(const std::string& name, const char* comparison, double limit, const std::string& valueText) {
    return name + comparison + PrintF("%f", limit) + (Messages() ? " (is: " : " (ist: ") + valueText + ")";
}

}  // namespace

AlarmEngine::AlarmEngine() : clock_(platform::UnixTimeMilliseconds) {}

void AlarmEngine::SetAlarmCallback(Callback callback) {
    std::lock_guard<std::mutex> lock(mutex_);
    callback_ = std::move(callback);
}

void AlarmEngine::SetClock(Clock clock) {
    std::lock_guard<std::mutex> lock(mutex_);
    clock_ = clock ? std::move(clock) : Clock(platform::UnixTimeMilliseconds);
}

void AlarmEngine::EvaluateAlarms(const Modbus::ModbusDetail& detail, double raw) {
    const double value = raw * detail.scale + detail.offset;
    // The texts of an event are made only when one is raised: most values of a poll raise nothing.
    const auto valueText = [&] {
        std::string text = PrintF("%.2f", value);
        if (!detail.unit.empty()) text += " " + detail.unit;
        return text;
    };
    const auto limitEvent = [&](int32_t type, const char* comparison, double limit) {
        Raise(detail.id, detail.name, type, LimitMessage(detail.name, comparison, limit, valueText()));
    };
    const std::string prefix = std::to_string(detail.id) + "_";

    std::lock_guard<std::mutex> lock(mutex_);
    // A pair is evaluated as a whole: a detail with only alarmLow set also raises ALARM_HIGH for
    // every value above 0. Users rely on setting one side to watch both.
    if (detail.alarmHigh != 0.0 || detail.alarmLow != 0.0) {
        if (Track(prefix + "ALARM_HIGH", value > detail.alarmHigh)) {
            limitEvent(Modbus::kAlarmThreshold, " > ", detail.alarmHigh);
        }
        if (Track(prefix + "ALARM_LOW", value < detail.alarmLow)) {
            limitEvent(Modbus::kAlarmThreshold, " < ", detail.alarmLow);
        }
    }
    if (detail.warnHigh != 0.0 || detail.warnLow != 0.0) {
        if (Track(prefix + "WARN_HIGH", value > detail.warnHigh)) limitEvent(Modbus::kAlarmWarning, " > ", detail.warnHigh);
        if (Track(prefix + "WARN_LOW", value < detail.warnLow)) limitEvent(Modbus::kAlarmWarning, " < ", detail.warnLow);
    }
    if (detail.alarmOnChange) {
        const auto last = lastValues_.find(detail.id);
        if (last != lastValues_.end() && last->second != value) {
            Raise(detail.id, detail.name, Modbus::kAlarmValueChanged,
                  detail.name + (Messages() ? " changed: " : " geaendert: ") + PrintF("%f", last->second) + " -> " +
                      PrintF("%f", value));
        }
        lastValues_[detail.id] = value;
    }
}

bool AlarmEngine::Track(const std::string& key, bool active) {
    if (!active) {
        activeKeys_.erase(key);
        return false;
    }
    return activeKeys_.insert(key).second;
}

void AlarmEngine::Raise(int32_t detailId, const std::string& detailName, int32_t type, std::string message) {
    Modbus::AlarmEvent event;
    event.timestamp = clock_();
    event.detailId = detailId;
    event.detailName = detailName;
    event.type = type;
    event.message = std::move(message);
    event.acknowledged = false;
    events_.push_back(std::move(event));
    if (callback_) callback_(events_.back());
}

void AlarmEngine::RaiseConnectionLost(int32_t detailId, const std::string& detailName, const std::string& message) {
    std::lock_guard<std::mutex> lock(mutex_);
    Raise(detailId, detailName, Modbus::kAlarmConnectionLost, message);
}

std::vector<Modbus::AlarmEvent> AlarmEngine::Events() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return events_;
}

size_t AlarmEngine::EventCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return events_.size();
}

size_t AlarmEngine::UnacknowledgedCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    size_t count = 0;
    for (const Modbus::AlarmEvent& e : events_) count += e.acknowledged ? 0 : 1;
    return count;
}

bool AlarmEngine::Acknowledge(size_t index) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (index >= events_.size()) return false;
    events_[index].acknowledged = true;
    return true;
}

void AlarmEngine::AcknowledgeAll() {
    std::lock_guard<std::mutex> lock(mutex_);
    for (Modbus::AlarmEvent& e : events_) e.acknowledged = true;
}

void AlarmEngine::ClearAlarms() {
    std::lock_guard<std::mutex> lock(mutex_);
    events_.clear();
    activeKeys_.clear();
}

std::set<std::string> AlarmEngine::ActiveKeys() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return activeKeys_;
}
