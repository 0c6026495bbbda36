#include "maps/register_map.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <iterator>
#include <optional>

#include "common/localizer.h"
#include "maps/csv_table.h"
#include "maps/detail_rules.h"

namespace maps {
namespace {

enum Column {
    kName,
    kFunctionCode,
    kAddress,
    kDataType,
    kByteOrder,
    kArraySize,
    kScale,
    kOffset,
    kUnit,
    kWarnLow,
    kWarnHigh,
    kAlarmLow,
    kAlarmHigh,
    kAlarmOnChange,
    kColumnCount
};

std::string Text(const char* english, const char* german) {
    return Localizer::Text(Localizer::Scope::Ui, english, german);
}

std::string Lower(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

std::string Upper(std::string text) {
    for (char& c : text) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return text;
}

// Where a value is, for an error message: the file, the physical line, the column's header text.
struct Place {
    const std::string& file;
    size_t line;
    const std::string& header;
};

std::string At(const std::string& file, size_t line) {
    return file + Text(": line ", ": Zeile ") + std::to_string(line);
}

std::string ExpectedError(const Place& place, const std::string& expected, const std::string& value) {
    return At(place.file, place.line) + Text(", column \"", ", Spalte \"") + place.header +
           "\": " + Text("expected ", "erwartet: ") + expected + Text(", not \"", ", nicht \"") + value + "\"";
}

// Whole numbers: decimal, or 0x hexadecimal when `hex` allows it; an optional sign for signed ones.
std::optional<int64_t> WholeNumber(const std::string& text, bool hex) {
    if (text.empty()) return std::nullopt;
    const bool isHex = hex && text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char* begin = text.data() + (isHex ? 2 : 0);
    const char* end = text.data() + text.size();
    if (!isHex && *begin == '+') ++begin;
    int64_t value = 0;
    const auto result = std::from_chars(begin, end, value, isHex ? 16 : 10);
    if (begin == end || result.ec != std::errc() || result.ptr != end) return std::nullopt;
    return value;
}

// A decimal number; with ';' as the separator a decimal comma is taken as well.
std::optional<double> DecimalNumber(std::string text, char separator) {
    if (separator == ';' && text.find(',') != std::string::npos) {
        if (text.find('.') != std::string::npos || std::count(text.begin(), text.end(), ',') != 1) return std::nullopt;
        std::replace(text.begin(), text.end(), ',', '.');
    }
    if (text.empty()) return std::nullopt;
    const char* begin = text.data();
    const char* end = text.data() + text.size();
    if (*begin == '+') ++begin;
    double value = 0;
    const auto result = std::from_chars(begin, end, value, std::chars_format::general);
    if (begin == end || result.ec != std::errc() || result.ptr != end || !std::isfinite(value)) return std::nullopt;
    return value;
}

std::optional<Modbus::DataType> DataTypeFromText(const std::string& text) {
    const std::string upper = Upper(text);
    for (int32_t t = 0; t < Modbus::kDataTypeCount; ++t) {
        const auto type = static_cast<Modbus::DataType>(t);
        if (upper == Modbus::DataTypeName(type)) return type;
    }
    return std::nullopt;
}

// The file's names (BIG_ENDIAN_SWAP) and the dialog's ("Big Endian Swap"), in any case.
std::optional<Modbus::ByteOrder> ByteOrderFromText(const std::string& text) {
    std::string name = Upper(text);
    std::replace(name.begin(), name.end(), ' ', '_');
    for (int32_t o = 0; o < Modbus::kByteOrderCount; ++o) {
        const auto order = static_cast<Modbus::ByteOrder>(o);
        if (name == Modbus::ByteOrderName(order)) return order;
    }
    return std::nullopt;
}

// 3, 03, 0x03, or the dialog's FC03 / FC15 / FC16 (decimal after FC).
std::optional<int64_t> FunctionCodeFromText(const std::string& text) {
    const std::string lower = Lower(text);
    if (lower.rfind("fc", 0) == 0) return WholeNumber(lower.substr(2), false);
    return WholeNumber(lower, true);
}

std::optional<bool> FlagFromText(const std::string& text) {
    const std::string lower = Lower(text);
    if (lower == "true" || lower == "1" || lower == "yes") return true;
    if (lower == "false" || lower == "0" || lower == "no") return false;
    return std::nullopt;
}

std::string CodeList(const std::vector<uint8_t>& codes) {
    std::string list;
    for (uint8_t code : codes) list += (list.empty() ? "" : ", ") + std::to_string(code);
    return list;
}

// The header row: which column sits where.
bool ReadHeader(const CsvRecord& header, const std::string& file, std::array<int, kColumnCount>& at,
                std::vector<std::string>& headerTexts, std::string& error) {
    at.fill(-1);
    const auto& names = RegisterMapColumns();
    for (size_t i = 0; i < header.fields.size(); ++i) {
        const std::string& text = header.fields[i].text;
        headerTexts.push_back(text);
        const auto known = std::find(names.begin(), names.end(), Lower(text));
        if (known == names.end()) {
            std::string list;
            for (const auto& n : names) list += (list.empty() ? "" : ", ") + n;
            error = At(file, header.line) + Text(", column \"", ", Spalte \"") + text +
                    "\": " + Text("unknown column; the columns are ", "unbekannte Spalte; die Spalten sind ") + list;
            return false;
        }
        const auto column = static_cast<size_t>(known - names.begin());
        if (at[column] >= 0) {
            error = At(file, header.line) + Text(", column \"", ", Spalte \"") + text +
                    "\": " + Text("the column is named twice", "die Spalte ist doppelt benannt");
            return false;
        }
        at[column] = static_cast<int>(i);
    }
    for (Column required : {kName, kAddress, kDataType}) {
        if (at[required] < 0) {
            error = At(file, header.line) + Text(": the required column \"", ": die Pflichtspalte \"") +
                    names[required] + Text("\" is missing", "\" fehlt");
            return false;
        }
    }
    return true;
}

// One row into one detail, through the dialog's defaults, corrections and refusals.
class RowReader {
public:
    RowReader(const CsvRecord& row, const std::array<int, kColumnCount>& at, const std::vector<std::string>& headers,
              const std::string& file, char separator)
        : row(row), at(at), headers(headers), file(file), separator(separator) {}

    bool Read(Modbus::ModbusDetail& d, std::string& error) {
        if (row.fields.size() > headers.size()) {
            error = At(file, row.line) + ": " + std::to_string(row.fields.size()) +
                    Text(" fields, but the header names ", " Felder, aber die Kopfzeile nennt ") +
                    std::to_string(headers.size()) + Text(" columns", " Spalten");
            return false;
        }
        d = Modbus::ModbusDetail();
        d.name = Field(kName);
        if (d.name.empty())
            return Fail(kName, Text("a name (it must not be empty)", "ein Name (er darf nicht leer sein)"), error);

        const auto type = DataTypeFromText(Field(kDataType));
        if (!type) {
            return Fail(kDataType,
                        Text("a data type (BOOLEAN, BYTE, INT16, UINT16, INT32, UINT32, INT64, UINT64, "
                             "FLOAT32, FLOAT64, STRING, RAW)",
                             "ein Datentyp (BOOLEAN, BYTE, INT16, UINT16, INT32, UINT32, INT64, UINT64, "
                             "FLOAT32, FLOAT64, STRING, RAW)"),
                        error);
        }
        d.dataType = *type;

        const auto address = WholeNumber(Field(kAddress), true);
        if (!address || *address < 0 || *address > 65535) {
            return Fail(kAddress,
                        Text("an address 0..65535 (decimal or 0x hexadecimal)",
                             "eine Adresse 0..65535 (dezimal oder 0x hexadezimal)"),
                        error);
        }
        d.registerAddress = static_cast<uint16_t>(*address);

        if (!ReadFunctionCode(d, error)) return false;

        if (!Field(kByteOrder).empty()) {
            const auto order = ByteOrderFromText(Field(kByteOrder));
            if (!order) {
                return Fail(kByteOrder,
                            Text("a byte order (BIG_ENDIAN, LITTLE_ENDIAN, BIG_ENDIAN_SWAP, "
                                 "LITTLE_ENDIAN_SWAP or Big Endian, Little Endian, Big Endian Swap, "
                                 "Little Endian Swap)",
                                 "eine Byte-Reihenfolge (BIG_ENDIAN, LITTLE_ENDIAN, BIG_ENDIAN_SWAP, "
                                 "LITTLE_ENDIAN_SWAP oder Big Endian, Little Endian, Big Endian Swap, "
                                 "Little Endian Swap)"),
                            error);
            }
            d.byteOrder = *order;
        }
        if (!Field(kArraySize).empty()) {
            const auto size = WholeNumber(Field(kArraySize), false);
            if (!size || *size < INT32_MIN || *size > INT32_MAX) {
                return Fail(kArraySize, Text("a whole number of elements", "eine ganze Anzahl von Elementen"), error);
            }
            d.arraySize = static_cast<int32_t>(*size);
        }
        const std::pair<Column, double*> numbers[] = {{kScale, &d.scale},       {kOffset, &d.offset},
                                                      {kWarnLow, &d.warnLow},   {kWarnHigh, &d.warnHigh},
                                                      {kAlarmLow, &d.alarmLow}, {kAlarmHigh, &d.alarmHigh}};
        for (const auto& [column, target] : numbers) {
            if (Field(column).empty()) continue;
            const auto value = DecimalNumber(Field(column), separator);
            if (!value) {
                return Fail(column,
                            separator == ';'
                                ? Text("a number (such as 12.5 or 12,5)", "eine Zahl (etwa 12.5 oder 12,5)")
                                : Text("a number (such as 12.5)", "eine Zahl (etwa 12.5)"),
                            error);
            }
            *target = *value;
        }
        d.unit = Field(kUnit);
        if (!Field(kAlarmOnChange).empty()) {
            const auto flag = FlagFromText(Field(kAlarmOnChange));
            if (!flag)
                return Fail(kAlarmOnChange, Text("true/false, 1/0 or yes/no", "true/false, 1/0 oder yes/no"), error);
            d.alarmOnChange = *flag;
        }
        ApplyDialogCorrections(d);
        return true;
    }

private:
    const std::string& Field(Column column) const {
        static const std::string empty;
        const int index = at[column];
        if (index < 0 || static_cast<size_t>(index) >= row.fields.size()) return empty;
        return row.fields[static_cast<size_t>(index)].text;
    }

    size_t LineOf(Column column) const {
        const int index = at[column];
        if (index < 0 || static_cast<size_t>(index) >= row.fields.size()) return row.line;
        return row.fields[static_cast<size_t>(index)].line;
    }

    bool Fail(Column column, const std::string& expected, std::string& error) const {
        const std::string& header = headers[static_cast<size_t>(at[column])];
        error = ExpectedError(Place{file, LineOf(column), header}, expected, Field(column));
        return false;
    }

    // Absent: the code the dialog selects for the type. Given: one the dialog offers for it.
    bool ReadFunctionCode(Modbus::ModbusDetail& d, std::string& error) const {
        if (Field(kFunctionCode).empty()) {
            d.functionCode = DefaultCodeFor(d.dataType);
            return true;
        }
        const auto code = FunctionCodeFromText(Field(kFunctionCode));
        const auto& all = DialogFunctionCodes();
        if (!code || std::find(all.begin(), all.end(), *code) == all.end()) {
            return Fail(kFunctionCode,
                        Text("a function code 1, 2, 3, 4, 5, 6, 15 or 16 (as 3, 03, 0x03 or FC03)",
                             "ein Funktionscode 1, 2, 3, 4, 5, 6, 15 oder 16 (als 3, 03, 0x03 oder FC03)"),
                        error);
        }
        if (!IsCodeOfferedFor(d.dataType, static_cast<uint8_t>(*code))) {
            const std::string typeName = Modbus::DataTypeName(d.dataType);
            return Fail(kFunctionCode,
                        Text("a function code that fits the data type ", "ein Funktionscode, der zum Datentyp ") +
                            typeName + Text(" (", " passt (") + CodeList(CodesOfferedFor(d.dataType)) + ")",
                        error);
        }
        d.functionCode = static_cast<uint8_t>(*code);
        return true;
    }

    const CsvRecord& row;
    const std::array<int, kColumnCount>& at;
    const std::vector<std::string>& headers;
    const std::string& file;
    char separator;
};

// Shortest text that reads back as the same double.
std::string ExactNumber(double value) {
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

}  // namespace

const std::vector<std::string>& RegisterMapColumns() {
    static const std::vector<std::string> columns = {
        "name",   "function_code", "address",  "data_type", "byte_order", "array_size", "scale",
        "offset", "unit",          "warn_low", "warn_high", "alarm_low",  "alarm_high", "alarm_on_change"};
    return columns;
}

bool ImportRegisterMap(const std::string& text, const std::string& fileName, std::vector<Modbus::ModbusDetail>& details,
                       std::string& error) {
    details.clear();
    CsvTable table;
    if (!ReadCsv(text, table, error)) {
        error = fileName + ": " + error;
        return false;
    }
    auto header =
        std::find_if(table.records.begin(), table.records.end(), [](const CsvRecord& r) { return !r.IsBlank(); });
    if (header == table.records.end()) {
        error = fileName + Text(": no header row naming the columns", ": keine Kopfzeile mit den Spaltennamen");
        return false;
    }
    std::array<int, kColumnCount> at{};
    std::vector<std::string> headers;
    if (!ReadHeader(*header, fileName, at, headers, error)) return false;
    std::vector<Modbus::ModbusDetail> read;
    for (auto row = header + 1; row != table.records.end(); ++row) {
        if (row->IsBlank()) continue;
        Modbus::ModbusDetail detail;
        if (!RowReader(*row, at, headers, fileName, table.separator).Read(detail, error)) return false;
        read.push_back(std::move(detail));
    }
    if (read.empty()) {
        error = fileName + Text(": no rows after the header", ": keine Zeilen nach der Kopfzeile");
        return false;
    }
    details = std::move(read);
    return true;
}

std::string ExportRegisterMap(const std::vector<Modbus::ModbusDetail>& details) {
    const char separator = ',';
    std::string text;
    const auto& columns = RegisterMapColumns();
    for (size_t i = 0; i < columns.size(); ++i) text += (i == 0 ? "" : ",") + columns[i];
    text += '\n';
    for (const Modbus::ModbusDetail& d : details) {
        const std::string fields[] = {CsvQuote(d.name, separator),
                                      std::to_string(d.functionCode),
                                      std::to_string(d.registerAddress),
                                      Modbus::DataTypeName(d.dataType),
                                      Modbus::ByteOrderName(d.byteOrder),
                                      std::to_string(d.arraySize),
                                      ExactNumber(d.scale),
                                      ExactNumber(d.offset),
                                      CsvQuote(d.unit, separator),
                                      ExactNumber(d.warnLow),
                                      ExactNumber(d.warnHigh),
                                      ExactNumber(d.alarmLow),
                                      ExactNumber(d.alarmHigh),
                                      d.alarmOnChange ? "true" : "false"};
        for (size_t i = 0; i < std::size(fields); ++i) text += (i == 0 ? "" : ",") + fields[i];
        text += '\n';
    }
    return text;
}

}  // namespace maps
