// Texts of the bus monitor: frame lines, CSV rows, the statistics table.
#include "monitor/monitor_text.h"

#include <algorithm>
#include <cstdio>

#include "common/civil_date.h"
#include "common/number_text.h"
#include "protocol/frame_codec.h"

namespace Modbus {
namespace {

double Median(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    const size_t n = samples.size();
    return n % 2 == 1 ? samples[n / 2] : (samples[n / 2 - 1] + samples[n / 2]) / 2.0;
}

}  // namespace

std::string IsoUtcTime(int64_t wallUs) {
    const int64_t ms = wallUs / 1000;
    const int64_t seconds = ms / 1000;
    const int64_t days = seconds / 86400;
    const int64_t secondOfDay = seconds % 86400;
    int64_t year = 0;
    unsigned month = 0, day = 0;
    CivilFromDays(days, year, month, day);
    char text[40];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(year), month, day,
                  static_cast<int>(secondOfDay / 3600), static_cast<int>(secondOfDay / 60 % 60),
                  static_cast<int>(secondOfDay % 60), static_cast<int>(ms % 1000));
    return text;
}

const char* DirectionName(FrameDirection direction) {
    switch (direction) {
        case FrameDirection::Request: return "request";
        case FrameDirection::Response: return "response";
        default: return "unknown";
    }
}

const char* StatusName(FrameStatus status) {
    switch (status) {
        case FrameStatus::Ok: return "ok";
        case FrameStatus::Exception: return "exception";
        case FrameStatus::CrcError: return "crc_error";
        default: return "unanswered";
    }
}

std::string FrameLine(const MonitorRecord& r) {
    std::string line = IsoUtcTime(r.wallUs);
    line += ' ';
    line += DirectionName(r.direction);
    line += " unit " + std::to_string(r.unitId) + ' ' + FunctionCodeName(r.functionCode);
    if (r.fields.hasAddress) line += ", address " + std::to_string(r.fields.address);
    if (r.fields.hasCount) line += ", count " + std::to_string(r.fields.count);
    if (!r.fields.values.empty()) line += ", values " + JoinedNumbers(r.fields.values, " ");
    if (r.isException) line += ", exception " + std::to_string(r.exceptionCode);
    line += ": ";
    line += StatusName(r.status);
    if (r.hasResponseTime) line += ", " + OneDecimal(r.responseMs) + " ms";
    line += " | ";
    AppendHexDump(line, r.bytes.data(), r.bytes.size());
    return line;
}

std::string CsvRow(const MonitorRecord& r) {
    std::string row = IsoUtcTime(r.wallUs);
    row += ';';
    row += DirectionName(r.direction);
    row += ';' + std::to_string(r.unitId) + ';' + std::to_string(r.functionCode) + ';';
    row += FunctionCodeName(r.functionCode);
    row += ';';
    if (r.fields.hasAddress) row += std::to_string(r.fields.address);
    row += ';';
    if (r.fields.hasCount) row += std::to_string(r.fields.count);
    row += ';' + JoinedNumbers(r.fields.values, " ") + ';';
    if (r.isException) row += std::to_string(r.exceptionCode);
    row += ';';
    row += StatusName(r.status);
    row += ';';
    if (r.hasResponseTime) row += OneDecimal(r.responseMs);
    row += ';';
    AppendHexDump(row, r.bytes.data(), r.bytes.size());
    return row;
}

std::string StatisticsTable(const std::map<uint8_t, UnitStatistics>& statistics, uint64_t noiseBytes) {
    std::string table = std::string(kMonitorStatisticsHeader) + '\n';
    for (const auto& [unit, s] : statistics) {
        table += std::to_string(unit) + ';' + std::to_string(s.requests) + ';' + std::to_string(s.responses) + ';' +
                 std::to_string(s.exceptions) + ';' + std::to_string(s.unanswered) + ';' +
                 std::to_string(s.crcErrors) + ';';
        if (!s.responseTimesMs.empty()) {
            const auto [low, high] = std::minmax_element(s.responseTimesMs.begin(), s.responseTimesMs.end());
            table += OneDecimal(*low) + ';' + OneDecimal(Median(s.responseTimesMs)) + ';' + OneDecimal(*high);
        } else {
            table += ";;";
        }
        table += '\n';
    }
    table += "noise bytes skipped: " + std::to_string(noiseBytes) + '\n';
    return table;
}

}  // namespace Modbus
