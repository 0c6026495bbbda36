#include "cli/language.h"

#include "cli/command.h"
#include "common/localizer.h"
#include "model/app_settings.h"

namespace cli {

void ApplyLanguage(const std::optional<std::string>& lang) {
    if (!lang) {
        // Like the window, the command line speaks the language of the stored settings (German
        // when nothing is stored).
        AppSettings settings;
        LoadSettings(settings);
        ApplyLanguageFlags(settings);
        return;
    }
    int language = 0;
    if (*lang == "en") {
        language = 1;
    } else if (*lang != "de") {
        throw UsageError("--lang must be en or de, not '" + *lang + "'");
    }
    Localizer::SetAllLanguages(language);
}

}  // namespace cli
