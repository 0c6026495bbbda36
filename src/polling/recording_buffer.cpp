#include "polling/recording_buffer.h"

#include <cstdio>
#include <ctime>

#include "common/civil_date.h"
#include "common/localizer.h"
#include "model/value_display.h"
#include "platform/clock.h"
#include "platform/file_io.h"

namespace {

int64_t SystemClock() { return platform::UnixTimeMilliseconds(); }

}  // namespace

std::string RecordButtonText(bool recording) {
    return recording ? Localizer::Text(Localizer::Scope::Ui, "Stop", "Stoppen")
                     : Localizer::Text(Localizer::Scope::Ui, "Record", "Aufzeichnen");
}

std::string DefaultRecordingName() { return Localizer::Text(Localizer::Scope::Ui, "Recording", "Aufzeichnung"); }

std::string RawValueText(const DecodedValue& value) {
    double number = 0.0;
    if (const bool* b = std::get_if<bool>(&value)) return *b ? "1.000000" : "0.000000";
    if (const int64_t* i = std::get_if<int64_t>(&value)) {
        // What "%f" prints for an integer the double holds exactly, without the formatter's cost
        // (every polled integer point goes through here).
        constexpr int64_t kExact = int64_t{1} << 53;
        if (*i >= -kExact && *i <= kExact) return std::to_string(*i) + ".000000";
        number = static_cast<double>(*i);
    }
    if (const double* d = std::get_if<double>(&value)) number = *d;
    char text[512];
    std::snprintf(text, sizeof text, "%f", number);
    return text;
}

std::string CsvTimestamp(int64_t timestampMs) {
    const int64_t seconds = timestampMs / 1000;
    int64_t days = seconds / 86400;
    int64_t secondOfDay = seconds % 86400;
    if (secondOfDay < 0) {
        secondOfDay += 86400;
        --days;
    }
    int64_t year = 0;
    unsigned month = 0, day = 0;
    CivilFromDays(days, year, month, day);
    char text[64];
    std::snprintf(text, sizeof text, "%04lld-%02u-%02uT%02lld:%02lld:%02lld", static_cast<long long>(year), month, day,
                  static_cast<long long>(secondOfDay / 3600), static_cast<long long>(secondOfDay / 60 % 60),
                  static_cast<long long>(secondOfDay % 60));
    return text;
}

RecordingBuffer::RecordingBuffer() : clock(SystemClock) {}

bool RecordingBuffer::ToggleRecording(const std::string& name) {
    std::lock_guard<std::mutex> lock(mutex);
    if (recording) {
        recording = false;
        return false;
    }
    recordingName = name;
    startTimeMs = clock();
    entries.clear();
    recording = true;
    return true;
}

void RecordingBuffer::Record(const Modbus::PollingResult& result, const Modbus::ModbusDetail& detail) {
    std::lock_guard<std::mutex> lock(mutex);
    if (!recording) return;
    RecordEntry entry;
    entry.timestampMs = clock();
    entry.detailId = detail.id;
    entry.name = result.name;
    entry.rawValue = RawValueText(result.value);
    entry.displayValue = FormatDisplayText(detail, result.value);
    entry.unit = detail.unit;
    entries.push_back(std::move(entry));
}

bool RecordingBuffer::ExportCsv(const std::string& path) const {
    std::lock_guard<std::mutex> lock(mutex);
    // Binary mode with explicit CR LF: the file is the same on every platform.
    std::FILE* file = platform::OpenFile(path, "wb");
    if (file == nullptr) return false;
    const char* header = Localizer::Text(Localizer::Scope::Messages, "Timestamp;Name;RawValue;DisplayValue;Unit\r\n",
                                         "Zeitstempel;Name;Rohwert;Anzeigewert;Einheit\r\n");
    std::fputs(header, file);
    for (const RecordEntry& e : entries) {
        const std::string line = CsvTimestamp(e.timestampMs) + ";" + e.name + ";" + e.rawValue + ";" +
                                 e.displayValue + ";" + e.unit + "\r\n";
        std::fwrite(line.data(), 1, line.size(), file);
    }
    // A write that failed part of the way (a full disk) leaves no half file behind.
    const bool written = std::ferror(file) == 0;
    if (std::fclose(file) == 0 && written) return true;
    platform::RemoveFile(path);
    return false;
}

bool RecordingBuffer::IsRecording() const {
    std::lock_guard<std::mutex> lock(mutex);
    return recording;
}

std::string RecordingBuffer::RecordingName() const {
    std::lock_guard<std::mutex> lock(mutex);
    return recordingName;
}

int64_t RecordingBuffer::StartTimeMs() const {
    std::lock_guard<std::mutex> lock(mutex);
    return startTimeMs;
}

std::vector<RecordEntry> RecordingBuffer::Entries() const {
    std::lock_guard<std::mutex> lock(mutex);
    return std::vector<RecordEntry>(entries.begin(), entries.end());
}

void RecordingBuffer::SetClock(Clock newClock) {
    std::lock_guard<std::mutex> lock(mutex);
    clock = newClock ? newClock : SystemClock;
}
