#pragma once
// Walking UTF-8 text one code point at a time, for the topic levels and the JSON strings the bridge
// makes from names and values that come from files and devices.
#include <cstddef>
#include <cstdint>
#include <string>

// The length of the well-formed UTF-8 sequence at `at` and its code point; 0 when the bytes there
// are not one (a stray continuation byte, a cut or overlong sequence, a surrogate, beyond U+10FFFF).
size_t Utf8SequenceAt(const std::string& text, size_t at, uint32_t& codePoint);
