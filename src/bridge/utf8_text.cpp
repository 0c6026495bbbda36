#include "bridge/utf8_text.h"

size_t Utf8SequenceAt(const std::string& text, size_t at, uint32_t& codePoint) {
    const unsigned char lead = static_cast<unsigned char>(text[at]);
    size_t length = 0;
    uint32_t minimum = 0;
    if (lead < 0x80) {
        codePoint = lead;
        return 1;
    }
    if ((lead & 0xE0) == 0xC0) {
        length = 2, codePoint = lead & 0x1F, minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3, codePoint = lead & 0x0F, minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4, codePoint = lead & 0x07, minimum = 0x10000;
    } else {
        return 0;
    }
    if (at + length > text.size()) return 0;
    for (size_t i = 1; i < length; ++i) {
        const unsigned char next = static_cast<unsigned char>(text[at + i]);
        if ((next & 0xC0) != 0x80) return 0;
        codePoint = (codePoint << 6) | (next & 0x3F);
    }
    if (codePoint < minimum || codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) return 0;
    return length;
}
