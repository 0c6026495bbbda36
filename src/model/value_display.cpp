#include "model/value_display.h"

#include <cstdio>

namespace {

std::string Fixed3(double value) {
    char text[512];
    std::snprintf(text, sizeof text, "%.3f", value);
    return text;
}

std::string WithUnit(std::string number, const std::string& unit) {
    if (!unit.empty()) number += " " + unit;
    return number;
}

}  // namespace

double NumericValue(const DecodedValue& value) {
    switch (value.index()) {
        case 0: return std::get<bool>(value) ? 1.0 : 0.0;
        case 1: return static_cast<double>(std::get<int64_t>(value));
        case 2: return std::get<double>(value);
        case 4: {
            const auto& registers = std::get<std::vector<uint16_t>>(value);
            return registers.empty() ? 0.0 : registers.front();
        }
        default: return 0.0;
    }
}

std::string FormatDisplayText(const Modbus::ModbusDetail& detail, const DecodedValue& value) {
    switch (value.index()) {
        case 0: return std::get<bool>(value) ? "ON" : "OFF";
        case 1: {
            const int64_t raw = std::get<int64_t>(value);
            if (detail.scale == 1.0 && detail.offset == 0.0) return WithUnit(std::to_string(raw), detail.unit);
            return WithUnit(Fixed3(static_cast<double>(raw) * detail.scale + detail.offset), detail.unit);
        }
        case 2: return WithUnit(Fixed3(std::get<double>(value) * detail.scale + detail.offset), detail.unit);
        case 3: return std::get<std::string>(value);
        default: {
            std::string text;
            char hex[8];
            for (uint16_t r : std::get<std::vector<uint16_t>>(value)) {
                std::snprintf(hex, sizeof hex, "%04X", static_cast<unsigned>(r));
                if (!text.empty()) text += ' ';
                text += hex;
            }
            return text;
        }
    }
}
