#pragma once
// A program's output or a file's text as its lines, without the '\n'; a final '\n' makes no empty
// last line, and an empty text has none.
#include <sstream>
#include <string>
#include <vector>

inline std::vector<std::string> SplitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) lines.push_back(line);
    return lines;
}
