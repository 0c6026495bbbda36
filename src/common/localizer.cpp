#include "common/localizer.h"

namespace Localizer {
namespace {

std::atomic<int> g_uiLanguage{0};
std::atomic<int> g_messageLanguage{0};
std::atomic<int> g_connectionLanguage{0};

std::atomic<int>& Flag(Scope scope) {
    switch (scope) {
        case Scope::Ui: return g_uiLanguage;
        case Scope::Messages: return g_messageLanguage;
        case Scope::Connection: break;
    }
    return g_connectionLanguage;
}

}  // namespace

void SetLanguage(Scope scope, int language) { Flag(scope).store(language); }

void SetAllLanguages(int language) {
    SetLanguage(Scope::Ui, language);
    SetLanguage(Scope::Messages, language);
    SetLanguage(Scope::Connection, language);
}

int Language(Scope scope) { return Flag(scope).load(); }

bool IsEnglish(Scope scope) { return Flag(scope).load() != 0; }

}  // namespace Localizer
