#pragma once
// The platform seam for the settings store: a single key holding named DWORD and string values.
// On Windows it is the registry key HKEY_CURRENT_USER\Software\Kestrel (REG_DWORD and REG_SZ
// values, strings UTF-16 there and UTF-8 here). Elsewhere it is a small text file with the same
// value names and types, "settings" in $XDG_CONFIG_HOME/kestrel/ (else ~/.config/kestrel/): one
// line per value, "name=REG_DWORD:decimal" or "name=REG_SZ:text" with \\, \n and \r escaped.
// Failures are silent: a missing value or key reads as absent, a failed write is lost.
#include <cstdint>
#include <memory>
#include <string>

namespace platform {

class SettingsKey {
public:
    virtual ~SettingsKey() = default;
    // True and the value when it exists with the asked-for type.
    virtual bool QueryDword(const char* name, uint32_t& value) = 0;
    virtual bool QueryString(const char* name, std::string& value) = 0;
    virtual void SetDword(const char* name, uint32_t value) = 0;
    virtual void SetString(const char* name, const std::string& value) = 0;
};

// Opens the key for reading; null when it does not exist (nothing is created).
std::unique_ptr<SettingsKey> OpenSettingsForRead();
// Creates or opens the key for writing; null when that fails. On POSIX the values are written
// out when the key is destroyed (closing the key), in one atomic replace of the file.
std::unique_ptr<SettingsKey> OpenSettingsForWrite();

// Where the settings live: the registry path under HKEY_CURRENT_USER on Windows
// ("Software\Kestrel"), the file path elsewhere.
std::string SettingsLocation();
// Points the store elsewhere (a registry path under HKEY_CURRENT_USER, or a file path); an empty
// text restores the default. Used by tests so that they never touch the user's own settings.
void SetSettingsLocation(const std::string& location);

}  // namespace platform
