#include "cli/language.h"

#include "cli/command.h"
#include "common/localizer.h"

namespace cli {

void ApplyLanguage(const std::optional<std::string>& lang) {
    int language = 0;  // German unless told otherwise
    if (lang) {
        if (*lang == "en") {
            language = 1;
        } else if (*lang != "de") {
            throw UsageError("--lang must be en or de, not '" + *lang + "'");
        }
    }
    Localizer::SetAllLanguages(language);
}

}  // namespace cli
