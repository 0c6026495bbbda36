// The structures file reader: any text, as a hand-edited or damaged file would hold it.
//
// Checked:
// - only std::invalid_argument and std::out_of_range (a number that cannot be converted) leave
//   the reader; anything else escapes as a crash;
// - no crash, out-of-bounds access or undefined behaviour;
// - a file that was read and then saved reads back to the same structures, and saving that gives
//   the same text again. Numbers are written with six significant digits, so a double reads back
//   as its six-digit form; the comparison is made on that form. The format has two limits of its
//   own, which the writer does not guard against: the reader matches braces without regard to
//   quotes, so a text value holding '{' or '}' ends its object early, and the closing quote of a
//   value that ends in a backslash is written as \\" and read as an escaped quote. Structures that
//   hold such text are not compared (see docs/RELIABILITY.md).
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "model/structure_store.h"

namespace {

[[noreturn]] void Fail(const char* what) {
    std::fprintf(stderr, "invariant broken: %s\n", what);
    std::abort();
}

bool Carriable(const std::string& text) {
    return text.find_first_of("{}") == std::string::npos && (text.empty() || text.back() != '\\');
}

bool Carriable(const ModbusStructure& s) {
    if (!Carriable(s.name) || !Carriable(s.description) || !Carriable(s.ip)) return false;
    for (const auto& d : s.details) {
        if (!Carriable(d.name) || !Carriable(d.unit)) return false;
    }
    return true;
}

std::string G(double v) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%g", v);
    return buffer;
}

bool OutOfRangeText(double v) {
    const std::string text = G(v);
    try {
        (void)std::stod(text);
        return false;
    } catch (const std::out_of_range&) {
        return true;
    } catch (const std::invalid_argument&) {
        return false;
    }
}

bool PrintsOutOfRange(const ModbusStructure& s) {
    for (const auto& d : s.details) {
        for (double v : {d.scale, d.offset, d.warnLow, d.warnHigh, d.alarmLow, d.alarmHigh}) {
            if (OutOfRangeText(v)) return true;
        }
    }
    return false;
}

bool SameDetail(const Modbus::ModbusDetail& a, const Modbus::ModbusDetail& b) {
    return a.id == b.id && a.name == b.name && a.unit == b.unit && a.dataType == b.dataType &&
           a.arraySize == b.arraySize && a.registerAddress == b.registerAddress &&
           a.functionCode == b.functionCode && a.byteOrder == b.byteOrder && G(a.scale) == G(b.scale) &&
           G(a.offset) == G(b.offset) && G(a.warnLow) == G(b.warnLow) && G(a.warnHigh) == G(b.warnHigh) &&
           G(a.alarmLow) == G(b.alarmLow) && G(a.alarmHigh) == G(b.alarmHigh) &&
           a.alarmOnChange == b.alarmOnChange && a.widgetType == b.widgetType;
}

bool SameStructure(const ModbusStructure& a, const ModbusStructure& b) {
    if (a.id != b.id || a.name != b.name || a.description != b.description || a.ip != b.ip || a.port != b.port ||
        a.unitId != b.unitId || a.rtuOverTcp != b.rtuOverTcp || a.details.size() != b.details.size()) {
        return false;
    }
    for (size_t i = 0; i < a.details.size(); ++i) {
        if (!SameDetail(a.details[i], b.details[i])) return false;
    }
    return true;
}

bool Parse(StructureStore& store, const std::string& text) {
    try {
        store.ParseStructures(text);
        return true;
    } catch (const std::invalid_argument&) {
    } catch (const std::out_of_range&) {
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    StructureStore first("/nonexistent/fuzz.json");
    if (!Parse(first, text)) return 0;

    const std::vector<ModbusStructure> read = first.Structures();
    for (const auto& s : read) {
        if (!Carriable(s)) return 0;
    }
    const std::string saved = first.SerializeStructures();

    StructureStore second("/nonexistent/fuzz.json");
    if (!Parse(second, saved)) {
        // A double whose six-digit form lies outside the normal range of a double (just above the
        // smallest normal number, say) reads back as out of range; that is the one conversion
        // error a saved file may raise.
        for (const auto& s : read) {
            if (PrintsOutOfRange(s)) return 0;
        }
        Fail("a saved file does not read back");
    }
    const std::vector<ModbusStructure> reread = second.Structures();
    if (reread.size() != read.size()) Fail("a saved file reads back with another number of structures");
    for (size_t i = 0; i < read.size(); ++i) {
        if (!SameStructure(read[i], reread[i])) Fail("a saved structure reads back different");
    }
    if (second.SerializeStructures() != saved) Fail("saving what was read back gives another text");
    return 0;
}
