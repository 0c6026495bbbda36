#pragma once
// The language of every user-visible text. Each text is an English/German pair held where it is
// used; one of three process-wide flags picks the member at the moment the text is produced.
// The flags are set once at start-up from the stored settings (non-zero means English, zero German,
// German being the default) and not changed again during a run.
#include <atomic>
#include <string>

namespace Localizer {

// Which part of the program a text belongs to; each reads its own flag.
enum class Scope {
    Ui,          // windows, dialogs, message boxes, the command line's own texts
    Messages,    // alarm and polling messages, CSV headers
    Connection,  // the connection and slave log lines
};

void SetLanguage(Scope scope, int language);
void SetAllLanguages(int language);
int Language(Scope scope);
bool IsEnglish(Scope scope);

// Picks the English or the German member of a pair.
inline const char* Text(Scope scope, const char* english, const char* german) {
    return IsEnglish(scope) ? english : german;
}

}  // namespace Localizer
