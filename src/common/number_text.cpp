#include "common/number_text.h"

#include <cstdio>

std::string OneDecimal(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", value);
    return text;
}
