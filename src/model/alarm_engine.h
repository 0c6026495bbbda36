#pragma once
// The alarm engine: scales each newly polled value of a detail, compares it with the detail's
// limits, watches for changes, and raises one event per excursion. One instance lives for the
// whole process. One mutex guards the event list, the active-condition keys and the last values;
// the callback runs while it is held, so the callback must not call back into the engine (the
// window's callback only posts a message).
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "model/structure.h"

namespace Modbus {

// Event categories, the `type` of an AlarmEvent.
inline constexpr int32_t kAlarmWarning = 0;         // warning threshold
inline constexpr int32_t kAlarmThreshold = 1;       // alarm threshold
inline constexpr int32_t kAlarmValueChanged = 2;    // value changed
inline constexpr int32_t kAlarmConnectionLost = 3;  // connection lost

struct AlarmEvent {
    int64_t timestamp = 0;  // ms since 1970-01-01 UTC when raised
    int32_t detailId = 0;
    std::string detailName;
    int32_t type = 0;
    std::string message;
    bool acknowledged = false;
};

// The category's display text; German in both interface languages ("?" for an unknown type).
const char* AlarmKindName(int32_t type);
// The time of day of a time stamp as "HH:MM:SS", broken down as UTC whatever the local zone.
std::string FormatAlarmTime(int64_t timestampMs);

}  // namespace Modbus

class AlarmEngine {
public:
    using Callback = std::function<void(const Modbus::AlarmEvent&)>;
    using Clock = std::function<int64_t()>;  // ms since 1970-01-01 UTC

    AlarmEngine();

    void SetAlarmCallback(Callback callback);
    // Replaces the wall clock that stamps events (for tests).
    void SetClock(Clock clock);

    // Called with each newly decoded raw value of a detail. value = raw * scale + offset. A limit
    // pair is evaluated as a whole when either of its limits is non-zero (NaN counts as non-zero),
    // also the side whose limit is 0; comparisons are strict; a condition raises once when it
    // becomes true and is re-armed when it becomes false. With alarmOnChange, a value different
    // from the last one seen for the detail raises a change event.
    void EvaluateAlarms(const Modbus::ModbusDetail& detail, double raw);

    // Raises a connection-lost event (type 3) with the caller's message.
    void RaiseConnectionLost(int32_t detailId, const std::string& detailName, const std::string& message);

    std::vector<Modbus::AlarmEvent> Events() const;  // a copy, oldest first
    size_t EventCount() const;
    size_t UnacknowledgedCount() const;
    // Acknowledges the event at this position of the list; false when it is beyond the list.
    bool Acknowledge(size_t index);
    void AcknowledgeAll();
    // Removes every event and forgets the active conditions, so a value still beyond a limit
    // raises again. The last values seen stay.
    void ClearAlarms();

    std::set<std::string> ActiveKeys() const;

    // The lock and the list, for the alarms page that copies or flags several events in one go.
    std::mutex& Mutex() const { return mutex_; }
    std::vector<Modbus::AlarmEvent>& EventsLocked() { return events_; }

private:
    // Lock held.
    void Raise(int32_t detailId, const std::string& detailName, int32_t type, std::string message);
    // Marks the condition active or not; true when it has just become active (raise an event).
    bool Track(const std::string& key, bool active);

    mutable std::mutex mutex_;
    std::vector<Modbus::AlarmEvent> events_;
    std::set<std::string> activeKeys_;
    std::map<int32_t, double> lastValues_;
    Callback callback_;
    Clock clock_;
};
