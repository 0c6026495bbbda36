#pragma once
// The one recording of polled values: while recording is on, every successfully read detail of
// every poll cycle adds an entry; the whole recording is written out as CSV on request. Unbounded
// by design: a recording holds what the user asked for until the next one starts.
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "model/structure.h"
#include "polling/polling_engine.h"

struct RecordEntry {
    int64_t timestampMs = 0;  // system clock when the entry was made, ms since 1970-01-01 UTC
    int32_t detailId = 0;
    std::string name;
    std::string rawValue;      // "%f" of the value: 1.000000 / 0.000000 for a bool, 0.000000 for text
    std::string displayValue;  // the display text of the value
    std::string unit;
};

class RecordingBuffer {
public:
    using Clock = int64_t (*)();  // ms since 1970-01-01 UTC

    RecordingBuffer();

    // Switches recording. Starting discards the previous recording, names the new one and stamps
    // its start. Returns whether recording is now on.
    bool ToggleRecording(const std::string& name);
    // Appends one entry for a result that was read successfully, if recording is on.
    void Record(const Modbus::PollingResult& result, const Modbus::ModbusDetail& detail);
    // Writes the recording as CSV: a header in the program's language, one line per entry, fields
    // separated by ';' and written as they are (no quoting), CR LF line ends on every platform.
    // False when the file cannot be opened (nothing is written then) or cannot be written to the
    // end (a full disk; the partial file is removed).
    bool ExportCsv(const std::string& path) const;

    bool IsRecording() const;
    std::string RecordingName() const;
    int64_t StartTimeMs() const;
    std::vector<RecordEntry> Entries() const;
    // Replaces the system clock (for tests).
    void SetClock(Clock clock);

private:
    mutable std::mutex mutex;
    bool recording = false;
    std::string recordingName;
    int64_t startTimeMs = 0;
    // A deque: a long recording grows in small blocks, never by copying all entries to a buffer
    // twice the size (which stalled the poll thread for milliseconds and left up to half unused).
    std::deque<RecordEntry> entries;
    Clock clock;
};

// The record button's text for the state: "Record"/"Aufzeichnen" when off, "Stop"/"Stoppen" when on.
std::string RecordButtonText(bool recording);
// The name of a recording started with no structure selected: "Recording" / "Aufzeichnung".
std::string DefaultRecordingName();
// "%f" of the value's raw number; strings and register arrays have none and print 0.000000.
std::string RawValueText(const DecodedValue& value);
// "2023-11-14T22:13:20" for 1,700,000,000,123 ms: UTC, seconds only, no zone suffix.
std::string CsvTimestamp(int64_t timestampMs);
