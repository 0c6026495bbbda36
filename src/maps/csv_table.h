#pragma once
// A CSV table as vendors write them: the separator ';' or ',' taken from the header row, UTF-8 with
// or without a byte-order mark, fields in double quotes that may hold the separator, line breaks
// and doubled quotes, CR LF or LF line ends. Every field remembers the physical line it starts on
// (the header is line 1), so an error can name the line a user sees in an editor.
#include <cstddef>
#include <string>
#include <vector>

namespace maps {

struct CsvField {
    std::string text;
    size_t line = 0;      // the physical line the field starts on, from 1
    bool quoted = false;  // quoted fields keep their spaces; unquoted ones are trimmed
};

struct CsvRecord {
    std::vector<CsvField> fields;
    size_t line = 0;  // the physical line the record starts on

    // A record of empty fields only (a blank line, or a row of separators as spreadsheets export).
    bool IsBlank() const;
};

struct CsvTable {
    char separator = ',';
    std::vector<CsvRecord> records;  // the header first, blank records included
};

// Reads the whole text. False with `error` (English/German, "line N: ...") for a quoted field that
// is never closed or text after a closing quote.
bool ReadCsv(const std::string& text, CsvTable& table, std::string& error);

// One field as written: quoted when it holds the separator, a quote, a line break or leading or
// trailing spaces, with its quotes doubled.
std::string CsvQuote(const std::string& text, char separator);

}  // namespace maps
