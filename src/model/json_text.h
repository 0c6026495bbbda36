#pragma once
// The small pieces of JSON text handling the structures file needs: string escaping and the
// search-based value lookup of the tolerant reader, and the number conversions it uses. There is
// no general JSON parser: a key is found wherever it first occurs in the searched text.
#include <cstdint>
#include <string>

// A double quote, a backslash, a line feed, a carriage return and a tab are escaped; every other
// byte (other control characters and UTF-8 included) is copied unchanged. No \u escapes.
std::string EscapeJsonString(const std::string& text);
// Reverses the five escapes; a backslash before any other character is kept together with it, and
// a backslash at the very end is kept.
std::string UnescapeJsonString(const std::string& text);

// The string value of `key`: after the first `"key": "`, up to the next double quote that is not
// directly preceded by a backslash, unescaped. Empty when the key or the closing quote is missing.
std::string JsonStringValue(const std::string& text, const std::string& key);
// The bare value of `key` (a number, true or false): after the first `"key": `, up to the first
// comma, line feed or closing brace (or the end of the text), trailing blanks, line feeds and
// carriage returns trimmed. Empty when the key is missing.
std::string JsonLiteralValue(const std::string& text, const std::string& key);

// The standard conversions: the leading decimal number of the text (leading white space skipped,
// optional sign, trailing characters ignored: "12abc" gives 12). Text without one throws
// std::invalid_argument ("invalid stoi argument" / "invalid stod argument"), a number beyond the
// 32-bit or the double range std::out_of_range ("stoi argument out of range" / "stod argument out
// of range"). The reader lets these escape.
int32_t ConvertToInt(const std::string& text);
double ConvertToDouble(const std::string& text);

// The %g format (6 significant digits) the file uses for doubles.
std::string FormatJsonDouble(double value);
