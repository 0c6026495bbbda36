// The scanner's output formats. csv and json are for scripts and stay as they are; the table is
// for people.
#include <cstdio>

#include "common/number_text.h"
#include "scan/scanner.h"

namespace scan {
namespace {

bool HasExceptionCode(const UnitResult& unit) {
    return unit.status == UnitStatus::Exception || unit.status == UnitStatus::NoDevice;
}

std::string UnitsJson(const UnitScanResult& result) {
    std::string text = "{\"units\": [";
    for (size_t i = 0; i < result.units.size(); ++i) {
        const UnitResult& u = result.units[i];
        text += i == 0 ? "\n  " : ",\n  ";
        text += "{\"unit\": " + std::to_string(u.unit) + ", \"status\": \"" + UnitStatusName(u.status) +
                "\", \"exception\": " + (HasExceptionCode(u) ? std::to_string(u.exceptionCode) : "null") +
                ", \"values\": [" + JoinedNumbers(u.values, ", ") + "]}";
    }
    if (!result.units.empty()) text += "\n";
    text += "], \"requests\": " + std::to_string(result.requests) + ", \"seconds\": " + OneDecimal(result.seconds) + "}\n";
    return text;
}

std::string UnitsCsv(const UnitScanResult& result) {
    std::string text = "unit;status;exception;values\n";
    for (const UnitResult& u : result.units) {
        text += std::to_string(u.unit) + ";" + UnitStatusName(u.status) + ";" +
                (HasExceptionCode(u) ? std::to_string(u.exceptionCode) : "") + ";" + JoinedNumbers(u.values, " ") + "\n";
    }
    return text;
}

std::string TrimRight(std::string text) {
    while (!text.empty() && text.back() == ' ') text.pop_back();
    return text;
}

std::string UnitsTable(const UnitScanResult& result) {
    std::string text = "unit  status     exception  values\n";
    uint32_t counts[4] = {0, 0, 0, 0};
    for (const UnitResult& u : result.units) {
        ++counts[static_cast<int>(u.status)];
        // A person wants the devices that exist; the summary counts the ids without one.
        if (u.status == UnitStatus::Silent || u.status == UnitStatus::NoDevice) continue;
        char row[64];
        std::snprintf(row, sizeof row, "%4u  %-9s  %-9s  ", static_cast<unsigned>(u.unit), UnitStatusName(u.status),
                      HasExceptionCode(u) ? std::to_string(u.exceptionCode).c_str() : "");
        text += TrimRight(row + JoinedNumbers(u.values, " ")) + "\n";
    }
    text += std::to_string(result.units.size()) + " ids probed: " + std::to_string(counts[0]) + " answering, " +
            std::to_string(counts[1]) + " exception, " + std::to_string(counts[2]) + " no-device, " +
            std::to_string(counts[3]) + " silent\n";
    text += RequestsAndTime(result) + "\n";
    return text;
}

std::string RangesJson(const RegisterScanResult& result, const RegisterScanOptions& options) {
    std::string text = "{\"unit\": " + std::to_string(options.unit) + ", \"fc\": " +
                       std::to_string(options.functionCode) + ", \"ranges\": [";
    for (size_t i = 0; i < result.ranges.size(); ++i) {
        const RegisterRange& r = result.ranges[i];
        text += i == 0 ? "\n  " : ",\n  ";
        text += "{\"first\": " + std::to_string(r.first) + ", \"last\": " + std::to_string(r.last) +
                ", \"count\": " + std::to_string(r.Count()) + "}";
    }
    if (!result.ranges.empty()) text += "\n";
    text += "], \"requests\": " + std::to_string(result.requests) + ", \"seconds\": " + OneDecimal(result.seconds) + "}\n";
    return text;
}

std::string RangesCsv(const RegisterScanResult& result) {
    std::string text = "first;last;count\n";
    for (const RegisterRange& r : result.ranges) {
        text += std::to_string(r.first) + ";" + std::to_string(r.last) + ";" + std::to_string(r.Count()) + "\n";
    }
    return text;
}

std::string RangesTable(const RegisterScanResult& result, const RegisterScanOptions& options) {
    std::string text = "first   last  count\n";
    uint32_t readable = 0;
    for (const RegisterRange& r : result.ranges) {
        char row[64];
        std::snprintf(row, sizeof row, "%5u  %5u  %5u\n", static_cast<unsigned>(r.first), static_cast<unsigned>(r.last),
                      static_cast<unsigned>(r.Count()));
        text += row;
        readable += r.Count();
    }
    char fc[8];
    std::snprintf(fc, sizeof fc, "FC%02u", static_cast<unsigned>(options.functionCode));
    text += "unit " + std::to_string(options.unit) + ", " + fc + ", " + std::to_string(options.from) + "-" +
            std::to_string(options.to) + ": " + std::to_string(result.ranges.size()) + " ranges, " +
            std::to_string(readable) + " addresses readable\n";
    text += RequestsAndTime(result) + "\n";
    return text;
}

}  // namespace

std::string RequestsAndTime(const ScanOutcome& outcome) {
    return std::to_string(outcome.requests) + " requests in " + OneDecimal(outcome.seconds) + " s";
}

std::string FormatUnits(const UnitScanResult& result, const std::string& format) {
    if (format == "json") return UnitsJson(result);
    if (format == "csv") return UnitsCsv(result);
    return UnitsTable(result);
}

std::string FormatRegisters(const RegisterScanResult& result, const RegisterScanOptions& options,
                            const std::string& format) {
    if (format == "json") return RangesJson(result, options);
    if (format == "csv") return RangesCsv(result);
    return RangesTable(result, options);
}

}  // namespace scan
