#include "maps/csv_table.h"

#include <algorithm>

#include "common/localizer.h"

namespace maps {
namespace {

std::string Text(const char* english, const char* german) {
    return Localizer::Text(Localizer::Scope::Ui, english, german);
}

std::string Trim(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos) return "";
    const size_t last = text.find_last_not_of(" \t");
    return text.substr(first, last - first + 1);
}

// The header (the first line that is not blank) decides: ';' when it holds one outside quotes,
// else ','.
char DetectSeparator(const std::string& text, size_t from) {
    from = std::min(text.size(), text.find_first_not_of(" \t\r\n", from));
    bool inQuotes = false;
    for (size_t i = from; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"')
            inQuotes = !inQuotes;
        else if (!inQuotes && (c == '\n' || c == '\r'))
            break;
        else if (!inQuotes && c == ';')
            return ';';
    }
    return ',';
}

}  // namespace

bool CsvRecord::IsBlank() const {
    for (const CsvField& field : fields) {
        if (!field.text.empty()) return false;
    }
    return true;
}

bool ReadCsv(const std::string& text, CsvTable& table, std::string& error) {
    table.records.clear();
    size_t i = text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
    table.separator = DetectSeparator(text, i);
    const char separator = table.separator;
    size_t line = 1;
    CsvRecord record;
    CsvField field;
    bool fieldStarted = false;  // anything of the current field seen (for the record's end)
    const auto endField = [&] {
        if (!field.quoted) field.text = Trim(field.text);
        record.fields.push_back(std::move(field));
        field = CsvField();
        field.line = line;
        fieldStarted = false;
    };
    const auto endRecord = [&] {
        endField();
        table.records.push_back(std::move(record));
        record = CsvRecord();
    };
    record.line = line;
    field.line = line;
    while (i < text.size()) {
        const char c = text[i];
        if (c == '"' && !fieldStarted) {
            // A quoted field: up to the quote that is not doubled.
            field.text.clear();  // spaces before the opening quote
            field.quoted = true;
            fieldStarted = true;
            const size_t openedOn = line;
            ++i;
            while (true) {
                if (i >= text.size()) {
                    error = Text("line ", "Zeile ") + std::to_string(openedOn) +
                            Text(": a quoted field is not closed",
                                 ": ein Feld in Anfuehrungszeichen wird nicht geschlossen");
                    return false;
                }
                if (text[i] == '"') {
                    if (i + 1 < text.size() && text[i + 1] == '"') {
                        field.text.push_back('"');
                        i += 2;
                        continue;
                    }
                    ++i;
                    break;
                }
                if (text[i] == '\n') ++line;
                field.text.push_back(text[i++]);
            }
            // Only spaces may stand between the closing quote and the separator or line end.
            while (i < text.size() && (text[i] == ' ' || text[i] == '\t')) ++i;
            if (i < text.size() && text[i] != separator && text[i] != '\r' && text[i] != '\n') {
                error = Text("line ", "Zeile ") + std::to_string(line) +
                        Text(": text after the closing quote of a field",
                             ": Text nach dem schliessenden Anfuehrungszeichen eines Feldes");
                return false;
            }
            continue;
        }
        if (c == separator) {
            endField();
            ++i;
            continue;
        }
        if (c == '\r' || c == '\n') {
            endRecord();
            i += (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n') ? 2 : 1;
            ++line;
            record.line = line;
            field.line = line;
            continue;
        }
        field.text.push_back(c);
        if (c != ' ' && c != '\t') fieldStarted = true;
        ++i;
    }
    // The last line may end without a line break.
    if (fieldStarted || !field.text.empty() || !record.fields.empty()) endRecord();
    return true;
}

std::string CsvQuote(const std::string& text, char separator) {
    const bool needsQuotes =
        text.find_first_of(std::string("\"\r\n") + separator) != std::string::npos ||
        (!text.empty() && (text.front() == ' ' || text.back() == ' ' || text.front() == '\t' || text.back() == '\t'));
    if (!needsQuotes) return text;
    std::string quoted = "\"";
    for (char c : text) {
        if (c == '"') quoted.push_back('"');
        quoted.push_back(c);
    }
    quoted.push_back('"');
    return quoted;
}

}  // namespace maps
