#pragma once
// Numbers as the lines, tables and reports of the command line print them.
#include <string>
#include <vector>

// "12.3": one decimal place, as printf's "%.1f" (times in milliseconds or seconds).
std::string OneDecimal(double value);

// "1 2 3" or "1, 2, 3": the numbers in decimal with `separator` between them; "" for none.
template <typename Number>
std::string JoinedNumbers(const std::vector<Number>& values, const char* separator) {
    std::string text;
    for (size_t i = 0; i < values.size(); ++i) {
        if (i > 0) text += separator;
        text += std::to_string(values[i]);
    }
    return text;
}
