#include "model/structure_store.h"

#include <utility>

#include "model/demo_structure.h"
#include "model/json_text.h"
#include "platform/file_io.h"

namespace {

// Counters wrap like the 32-bit integers they are instead of overflowing.
int32_t Increment(int32_t value) { return static_cast<int32_t>(static_cast<uint32_t>(value) + 1u); }

void AppendKey(std::string& out, const char* indent, const char* key, const std::string& value, bool last = false) {
    out += indent;
    out += '"';
    out += key;
    out += "\": ";
    out += value;
    out += last ? "\n" : ",\n";
}

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

void SerializeDetail(std::string& out, const Modbus::ModbusDetail& d) {
    const char* indent = "          ";
    out += "        {\n";
    AppendKey(out, indent, "id", std::to_string(d.id));
    AppendKey(out, indent, "name", Quoted(EscapeJsonString(d.name)));
    AppendKey(out, indent, "unit", Quoted(EscapeJsonString(d.unit)));
    AppendKey(out, indent, "dataType", Quoted(Modbus::DataTypeName(d.dataType)));
    AppendKey(out, indent, "arraySize", std::to_string(d.arraySize));
    AppendKey(out, indent, "registerAddress", std::to_string(d.registerAddress));
    AppendKey(out, indent, "functionCode", std::to_string(d.functionCode));
    AppendKey(out, indent, "byteOrder", Quoted(Modbus::ByteOrderName(d.byteOrder)));
    AppendKey(out, indent, "scale", FormatJsonDouble(d.scale));
    AppendKey(out, indent, "offset", FormatJsonDouble(d.offset));
    AppendKey(out, indent, "warnLow", FormatJsonDouble(d.warnLow));
    AppendKey(out, indent, "warnHigh", FormatJsonDouble(d.warnHigh));
    AppendKey(out, indent, "alarmLow", FormatJsonDouble(d.alarmLow));
    AppendKey(out, indent, "alarmHigh", FormatJsonDouble(d.alarmHigh));
    AppendKey(out, indent, "alarmOnChange", d.alarmOnChange ? "true" : "false");
    AppendKey(out, indent, "widgetType", Quoted(Modbus::WidgetTypeName(d.widgetType)), true);
    out += "        }";
}

void SerializeStructure(std::string& out, const ModbusStructure& s) {
    const char* indent = "      ";
    out += "    {\n";
    AppendKey(out, indent, "id", std::to_string(s.id));
    AppendKey(out, indent, "name", Quoted(EscapeJsonString(s.name)));
    AppendKey(out, indent, "description", Quoted(EscapeJsonString(s.description)));
    AppendKey(out, indent, "ip", Quoted(EscapeJsonString(s.ip)));
    AppendKey(out, indent, "port", std::to_string(s.port));
    AppendKey(out, indent, "unitId", std::to_string(s.unitId));
    AppendKey(out, indent, "rtuOverTcp", s.rtuOverTcp ? "true" : "false");
    out += indent;
    out += "\"details\": [\n";
    for (size_t i = 0; i < s.details.size(); ++i) {
        if (i > 0) out += ",\n";
        SerializeDetail(out, s.details[i]);
    }
    out += "\n      ]\n    }";
}

// From the brace at `open`, counts braces until the count returns to 0; the position of that
// closing brace, or npos when the text ends first. Braces inside string values count as well.
size_t MatchingBrace(const std::string& text, size_t open) {
    int64_t depth = 0;
    for (size_t i = open; i < text.size(); ++i) {
        if (text[i] == '{') {
            ++depth;
        } else if (text[i] == '}') {
            if (--depth == 0) return i;
        }
    }
    return std::string::npos;
}

Modbus::ModbusDetail ParseDetail(const std::string& text) {
    Modbus::ModbusDetail d;
    const std::string id = JsonLiteralValue(text, "id");
    d.id = id.empty() ? 0 : ConvertToInt(id);
    d.name = JsonStringValue(text, "name");
    d.unit = JsonStringValue(text, "unit");
    d.dataType = Modbus::ParseDataType(JsonStringValue(text, "dataType"));
    if (const std::string v = JsonLiteralValue(text, "arraySize"); !v.empty()) d.arraySize = ConvertToInt(v);
    if (const std::string v = JsonLiteralValue(text, "registerAddress"); !v.empty()) {
        d.registerAddress = static_cast<uint16_t>(ConvertToInt(v));
    }
    if (const std::string v = JsonLiteralValue(text, "functionCode"); !v.empty()) {
        d.functionCode = static_cast<uint8_t>(ConvertToInt(v));
    }
    d.byteOrder = Modbus::ParseByteOrder(JsonStringValue(text, "byteOrder"));
    const std::pair<const char*, double*> doubles[] = {
        {"scale", &d.scale},       {"offset", &d.offset},      {"warnLow", &d.warnLow},
        {"warnHigh", &d.warnHigh}, {"alarmLow", &d.alarmLow}, {"alarmHigh", &d.alarmHigh},
    };
    for (const auto& [key, field] : doubles) {
        if (const std::string v = JsonLiteralValue(text, key); !v.empty()) *field = ConvertToDouble(v);
    }
    d.alarmOnChange = JsonLiteralValue(text, "alarmOnChange") == "true";
    d.widgetType = Modbus::ParseWidgetType(JsonStringValue(text, "widgetType"));
    return d;
}

}  // namespace

StructureStore::StructureStore(std::string path) : path_(std::move(path)) {}

int32_t StructureStore::AddStructure(const ModbusStructure& structure) {
    std::lock_guard<std::mutex> lock(mutex_);
    ModbusStructure copy = structure;
    copy.id = nextStructureId_;
    nextStructureId_ = Increment(nextStructureId_);
    for (Modbus::ModbusDetail& detail : copy.details) {
        detail.id = nextDetailId_;
        nextDetailId_ = Increment(nextDetailId_);
    }
    structures_.push_back(std::move(copy));
    return structures_.back().id;
}

bool StructureStore::SaveStructures() const { return platform::WriteFileReplacing(path_, SerializeStructures()); }

void StructureStore::LoadStructures() {
    std::string text;
    if (!platform::ReadWholeFile(path_, text)) return;
    ParseStructures(text);
}

std::string StructureStore::SerializeStructures() const {
    std::string out = "{\n  \"structures\": [\n";
    for (size_t i = 0; i < structures_.size(); ++i) {
        if (i > 0) out += ",\n";
        SerializeStructure(out, structures_[i]);
    }
    out += "\n  ]\n}\n";
    return out;
}

bool StructureStore::ParseStructures(const std::string& text) {
    std::lock_guard<std::mutex> lock(mutex_);
    structures_.clear();
    size_t position = 0;
    for (;;) {
        const size_t brace = text.find('{', position);
        if (brace == std::string::npos) break;
        const size_t ip = text.find("\"ip\":", brace);
        if (ip == std::string::npos) break;
        // The structure object is the one whose opening brace is nearest before its "ip".
        const size_t open = text.rfind('{', ip);
        if (open == std::string::npos) break;
        const size_t close = MatchingBrace(text, open);
        if (close == std::string::npos) break;
        const std::string object = text.substr(open, close - open + 1);

        ModbusStructure s;
        const std::string id = JsonLiteralValue(object, "id");
        s.id = id.empty() ? 0 : ConvertToInt(id);
        s.name = JsonStringValue(object, "name");
        s.description = JsonStringValue(object, "description");
        s.ip = JsonStringValue(object, "ip");
        if (const std::string v = JsonLiteralValue(object, "port"); !v.empty()) {
            s.port = static_cast<uint16_t>(ConvertToInt(v));
        }
        if (const std::string v = JsonLiteralValue(object, "unitId"); !v.empty()) {
            s.unitId = static_cast<uint8_t>(ConvertToInt(v));
        }
        s.rtuOverTcp = JsonLiteralValue(object, "rtuOverTcp") == "true";

        const size_t detailsKey = object.find("\"details\":");
        size_t cursor = detailsKey == std::string::npos ? std::string::npos : object.find('[', detailsKey);
        while (cursor != std::string::npos) {
            const size_t detailOpen = object.find('{', cursor);
            if (detailOpen == std::string::npos) break;
            const size_t detailClose = MatchingBrace(object, detailOpen);
            if (detailClose == std::string::npos) break;
            s.details.push_back(ParseDetail(object.substr(detailOpen + 1, detailClose - detailOpen - 1)));
            if (s.details.back().id >= nextDetailId_) nextDetailId_ = Increment(s.details.back().id);
            cursor = detailClose + 1;
        }
        if (s.id >= nextStructureId_) nextStructureId_ = Increment(s.id);
        structures_.push_back(std::move(s));
        position = close + 1;
    }
    return !structures_.empty();
}

void StructureStore::CreateDemoStructure() {
    AddStructure(BuildDemoStructure());
    SaveStructures();
}

bool StructureStore::ExportStructures(const std::string& to) const {
    SaveStructures();
    return platform::CopyFileOverwriting(path_, to);
}

bool StructureStore::ImportStructures(const std::string& from) {
    if (!platform::CopyFileOverwriting(from, path_)) return false;
    LoadStructures();
    return true;
}

std::vector<ModbusStructure> StructureStore::Structures() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return structures_;
}

std::optional<ModbusStructure> StructureStore::FindStructure(int32_t id) const {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const ModbusStructure& s : structures_) {
        if (s.id == id) return s;
    }
    return std::nullopt;
}

std::optional<Modbus::ModbusDetail> StructureStore::FindDetail(int32_t structureId, int32_t detailId,
                                                               size_t hint) const {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const ModbusStructure& s : structures_) {
        if (s.id != structureId) continue;
        if (hint < s.details.size() && s.details[hint].id == detailId) return s.details[hint];
        for (const Modbus::ModbusDetail& d : s.details) {
            if (d.id == detailId) return d;
        }
        return std::nullopt;
    }
    return std::nullopt;
}

bool StructureStore::UpdateStructureFields(int32_t id, const ModbusStructure& fields) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (ModbusStructure& s : structures_) {
        if (s.id != id) continue;
        s.name = fields.name;
        s.description = fields.description;
        s.ip = fields.ip;
        s.port = fields.port;
        s.unitId = fields.unitId;
        s.rtuOverTcp = fields.rtuOverTcp;
        return true;
    }
    return false;
}

bool StructureStore::RemoveStructure(int32_t id) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = structures_.begin(); it != structures_.end(); ++it) {
        if (it->id == id) {
            structures_.erase(it);
            return true;
        }
    }
    return false;
}

int32_t StructureStore::AddDetail(int32_t structureId, const Modbus::ModbusDetail& detail) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (ModbusStructure& s : structures_) {
        if (s.id != structureId) continue;
        Modbus::ModbusDetail copy = detail;
        copy.id = nextDetailId_;
        nextDetailId_ = Increment(nextDetailId_);
        s.details.push_back(std::move(copy));
        return s.details.back().id;
    }
    return 0;
}

bool StructureStore::UpdateDetail(int32_t structureId, const Modbus::ModbusDetail& detail) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (ModbusStructure& s : structures_) {
        if (s.id != structureId) continue;
        for (Modbus::ModbusDetail& d : s.details) {
            if (d.id == detail.id) {
                d = detail;
                return true;
            }
        }
    }
    return false;
}

bool StructureStore::RemoveDetail(int32_t structureId, int32_t detailId) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (ModbusStructure& s : structures_) {
        if (s.id != structureId) continue;
        for (auto it = s.details.begin(); it != s.details.end(); ++it) {
            if (it->id == detailId) {
                s.details.erase(it);
                return true;
            }
        }
    }
    return false;
}

int32_t StructureStore::NextStructureId() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return nextStructureId_;
}

int32_t StructureStore::NextDetailId() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return nextDetailId_;
}
