#include "model/json_text.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

std::string EscapeJsonString(const std::string& text) {
    std::string out;
    out.reserve(text.size() + 8);
    for (char c : text) {
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            default: out += c; break;
        }
    }
    return out;
}

std::string UnescapeJsonString(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c != '\\' || i + 1 == text.size()) {
            out += c;
            continue;
        }
        const char next = text[++i];
        switch (next) {
            case '"': out += '"'; break;
            case '\\': out += '\\'; break;
            case 'n': out += '\n'; break;
            case 'r': out += '\r'; break;
            case 't': out += '\t'; break;
            default:
                out += '\\';
                out += next;
                break;
        }
    }
    return out;
}

std::string JsonStringValue(const std::string& text, const std::string& key) {
    const std::string pattern = "\"" + key + "\": \"";
    const size_t found = text.find(pattern);
    if (found == std::string::npos) return {};
    const size_t start = found + pattern.size();
    for (size_t end = start; end < text.size(); ++end) {
        // A quote preceded by a backslash is taken as escaped, even when that backslash was
        // itself escaped: a value ending in a backslash runs on to the next quote.
        if (text[end] == '"' && text[end - 1] != '\\') return UnescapeJsonString(text.substr(start, end - start));
    }
    return {};
}

std::string JsonLiteralValue(const std::string& text, const std::string& key) {
    const std::string pattern = "\"" + key + "\": ";
    const size_t found = text.find(pattern);
    if (found == std::string::npos) return {};
    const size_t start = found + pattern.size();
    size_t end = text.find_first_of(",\n}", start);
    if (end == std::string::npos) end = text.size();
    while (end > start && (text[end - 1] == ' ' || text[end - 1] == '\n' || text[end - 1] == '\r')) --end;
    return text.substr(start, end - start);
}

int32_t ConvertToInt(const std::string& text) {
    const char* begin = text.c_str();
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(begin, &end, 10);
    if (end == begin) throw std::invalid_argument("invalid stoi argument");
    if (errno == ERANGE || value < INT32_MIN || value > INT32_MAX) throw std::out_of_range("stoi argument out of range");
    return static_cast<int32_t>(value);
}

double ConvertToDouble(const std::string& text) {
    const char* begin = text.c_str();
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(begin, &end);
    if (end == begin) throw std::invalid_argument("invalid stod argument");
    if (errno == ERANGE) throw std::out_of_range("stod argument out of range");
    return value;
}

std::string FormatJsonDouble(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}
