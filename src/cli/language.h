#pragma once
#include <optional>
#include <string>

namespace cli {
// Sets the program's language flags from --lang (en or de); without it, from the stored settings.
void ApplyLanguage(const std::optional<std::string>& lang);
}  // namespace cli
