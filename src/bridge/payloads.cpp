#include "bridge/payloads.h"

#include <charconv>
#include <cmath>
#include <ctime>
#include <variant>

#include "bridge/utf8_text.h"

namespace {

constexpr const char* kReplacementCharacter = "\xEF\xBF\xBD";

std::string JsonNumber(double value) {
    if (!std::isfinite(value)) return "null";  // JSON has no NaN or infinity
    char text[64];
    const auto result = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 15);
    return std::string(text, result.ptr);
}

}  // namespace

std::string IsoTimeUtc(int64_t unixMilliseconds) {
    int64_t seconds = unixMilliseconds / 1000;
    int64_t millis = unixMilliseconds % 1000;
    if (millis < 0) {
        millis += 1000;
        --seconds;
    }
    const std::time_t time = static_cast<std::time_t>(seconds);
    std::tm parts{};
#if defined(_WIN32)
    gmtime_s(&parts, &time);
#else
    gmtime_r(&time, &parts);
#endif
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + 1900, parts.tm_mon + 1,
                  parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, static_cast<int>(millis));
    return text;
}

std::string JsonString(const std::string& text) {
    std::string json = "\"";
    json.reserve(text.size() + 2);
    for (size_t at = 0; at < text.size();) {
        uint32_t codePoint = 0;
        const size_t length = Utf8SequenceAt(text, at, codePoint);
        if (length == 0) {
            json += kReplacementCharacter;
            ++at;
            continue;
        }
        const unsigned char c = static_cast<unsigned char>(text[at]);
        if (length > 1) {
            json.append(text, at, length);
        } else if (c == '"') {
            json += "\\\"";
        } else if (c == '\\') {
            json += "\\\\";
        } else if (c == '\n') {
            json += "\\n";
        } else if (c == '\r') {
            json += "\\r";
        } else if (c == '\t') {
            json += "\\t";
        } else if (c < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04X", c);
            json += escape;
        } else {
            json += static_cast<char>(c);
        }
        at += length;
    }
    return json + "\"";
}

bool IsValidResult(const Modbus::PollingResult& result) { return result.ok && result.error.empty(); }

std::string LiveValueText(const Modbus::PollingResult& result) {
    return result.ok ? result.displayText : "[Fehler]";
}

std::string ValueJson(const Modbus::ModbusDetail& detail, const Modbus::PollingResult& result) {
    if (!IsValidResult(result)) return "null";
    const DecodedValue& value = result.value;
    if (const bool* flag = std::get_if<bool>(&value)) return *flag ? "true" : "false";
    if (const int64_t* integer = std::get_if<int64_t>(&value)) {
        // Unscaled integers are published exactly, also beyond the 53 bits a double holds.
        if (detail.scale == 1.0 && detail.offset == 0.0) return std::to_string(*integer);
        return JsonNumber(static_cast<double>(*integer) * detail.scale + detail.offset);
    }
    if (const double* number = std::get_if<double>(&value)) return JsonNumber(*number * detail.scale + detail.offset);
    return JsonString(result.displayText);  // a string or a register array: its display text
}

std::string ValuePayload(const Modbus::ModbusDetail& detail, const Modbus::PollingResult& result, int64_t timeMs) {
    std::string json = "{\"value\": " + ValueJson(detail, result);
    json += ", \"text\": " + JsonString(LiveValueText(result));
    json += ", \"unit\": " + JsonString(detail.unit);
    json += std::string(", \"valid\": ") + (IsValidResult(result) ? "true" : "false");
    json += ", \"time\": \"" + IsoTimeUtc(timeMs) + "\"}";
    return json;
}

std::string AlarmPayload(const Modbus::AlarmEvent& event) {
    std::string json = "{\"type\": " + std::to_string(event.type);
    json += ", \"kind\": " + JsonString(Modbus::AlarmKindName(event.type));
    json += ", \"detail\": " + JsonString(event.detailName);
    json += ", \"message\": " + JsonString(event.message);
    json += ", \"time\": \"" + IsoTimeUtc(event.timestamp) + "\"}";
    return json;
}
