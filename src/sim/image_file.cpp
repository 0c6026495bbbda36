#include "sim/image_file.h"

#include <algorithm>
#include <charconv>

namespace sim {
namespace {

std::string Trim(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) return "";
    const size_t last = text.find_last_not_of(" \t\r");
    return text.substr(first, last - first + 1);
}

// Decimal or 0x hexadecimal, at most `max`.
bool Number(const std::string& text, uint32_t max, uint32_t& value) {
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char* begin = text.data() + (hex ? 2 : 0);
    const char* end = text.data() + text.size();
    uint64_t parsed = 0;
    const auto result = std::from_chars(begin, end, parsed, hex ? 16 : 10);
    if (begin == end || result.ec != std::errc() || result.ptr != end || parsed > max) return false;
    value = static_cast<uint32_t>(parsed);
    return true;
}

bool ParseTable(const std::string& name, ImageTable& table) {
    for (ImageTable t : {ImageTable::Coil, ImageTable::Discrete, ImageTable::Input, ImageTable::Holding}) {
        if (name == ImageTableName(t)) {
            table = t;
            return true;
        }
    }
    return false;
}

bool IsBitTable(ImageTable table) { return table == ImageTable::Coil || table == ImageTable::Discrete; }

// What a line must look like, said once for every way it can be wrong.
std::string ParseLine(const std::string& line, ImageValue& value) {
    std::vector<std::string> fields;
    size_t start = 0;
    while (true) {
        const size_t end = line.find(';', start);
        fields.push_back(Trim(line.substr(start, end == std::string::npos ? std::string::npos : end - start)));
        if (end == std::string::npos) break;
        start = end + 1;
    }
    if (fields.size() != 3) return "expected table;address;value, not '" + line + "'";
    if (!ParseTable(fields[0], value.table)) {
        return "expected the table coil, discrete, input or holding, not '" + fields[0] + "'";
    }
    uint32_t number = 0;
    if (!Number(fields[1], 65535, number)) {
        return "expected an address 0..65535 (decimal or 0x hexadecimal), not '" + fields[1] + "'";
    }
    value.address = static_cast<uint16_t>(number);
    const bool bit = IsBitTable(value.table);
    if (!Number(fields[2], bit ? 1 : 65535, number)) {
        return bit ? "expected a bit 0 or 1, not '" + fields[2] + "'"
                   : "expected a register value 0..65535 (decimal or 0x hexadecimal), not '" + fields[2] + "'";
    }
    value.value = static_cast<uint16_t>(number);
    return "";
}

template <typename Value>
void AppendNonZero(std::string& text, ImageTable table, const std::vector<Value>& values) {
    for (size_t address = 0; address < values.size(); ++address) {
        if (values[address] == 0) continue;
        text += ImageTableName(table);
        text += ';' + std::to_string(address) + ';' + std::to_string(static_cast<unsigned>(values[address])) + '\n';
    }
}

}  // namespace

const char* ImageTableName(ImageTable table) {
    switch (table) {
        case ImageTable::Coil: return "coil";
        case ImageTable::Discrete: return "discrete";
        case ImageTable::Input: return "input";
        case ImageTable::Holding: return "holding";
    }
    return "holding";
}

bool ParseImageText(const std::string& text, std::vector<ImageValue>& values, std::string& error) {
    values.clear();
    size_t start = 0;
    for (size_t lineNumber = 1; start < text.size(); ++lineNumber) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        const std::string line = Trim(text.substr(start, end - start));
        start = end + 1;
        if (line.empty() || line[0] == '#') continue;
        ImageValue value;
        const std::string problem = ParseLine(line, value);
        if (!problem.empty()) {
            error = "line " + std::to_string(lineNumber) + ": " + problem;
            return false;
        }
        values.push_back(value);
    }
    return true;
}

void SeedImage(SlaveRegisterImage& image, const std::vector<ImageValue>& values) {
    for (const ImageValue& v : values) {
        switch (v.table) {
            case ImageTable::Coil: image.SetCoils(v.address, {v.value != 0}); break;
            case ImageTable::Discrete: image.SetDiscreteInputs(v.address, {v.value != 0}); break;
            case ImageTable::Input: image.SetInputRegisters(v.address, {v.value}); break;
            case ImageTable::Holding: image.SetHoldingRegisters(v.address, {v.value}); break;
        }
    }
}

std::string ImageText(const SlaveRegisterImage& image) {
    // Read in blocks, so the image lock is never held for long while the slave serves.
    std::vector<bool> coils, discrete;
    std::vector<uint16_t> input, holding;
    for (uint32_t start = 0; start < 65536; start += 2048) {
        const auto count = static_cast<uint16_t>(std::min<uint32_t>(2048, 65536 - start));
        const auto c = image.GetCoils(static_cast<uint16_t>(start), count);
        const auto d = image.GetDiscreteInputs(static_cast<uint16_t>(start), count);
        coils.insert(coils.end(), c.begin(), c.end());
        discrete.insert(discrete.end(), d.begin(), d.end());
    }
    for (uint32_t start = 0; start < 65536; start += 4096) {
        const auto i = image.GetInputRegisters(static_cast<uint16_t>(start), 4096);
        const auto h = image.GetHoldingRegisters(static_cast<uint16_t>(start), 4096);
        input.insert(input.end(), i.begin(), i.end());
        holding.insert(holding.end(), h.begin(), h.end());
    }
    std::string text;
    AppendNonZero(text, ImageTable::Coil, coils);
    AppendNonZero(text, ImageTable::Discrete, discrete);
    AppendNonZero(text, ImageTable::Input, input);
    AppendNonZero(text, ImageTable::Holding, holding);
    return text;
}

}  // namespace sim
