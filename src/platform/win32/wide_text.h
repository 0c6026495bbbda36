#pragma once
// UTF-8 inside the program, UTF-16 at the Win32 call: the two conversions.
#include <string>

namespace platform {

std::wstring Wide(const std::string& utf8);
std::string Utf8(const std::wstring& wide);

}  // namespace platform
