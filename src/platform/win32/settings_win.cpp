#include <windows.h>

#include <mutex>
#include <vector>

#include "platform/win32/wide_text.h"
#include "platform/settings_store.h"

namespace platform {
namespace {

constexpr const char* kDefaultKeyPath = "Software\\Kestrel";

std::mutex g_locationMutex;
std::string g_location;  // empty: the default



class RegistrySettingsKey : public SettingsKey {
public:
    explicit RegistrySettingsKey(HKEY key) : key_(key) {}
    ~RegistrySettingsKey() override { RegCloseKey(key_); }
    RegistrySettingsKey(const RegistrySettingsKey&) = delete;
    RegistrySettingsKey& operator=(const RegistrySettingsKey&) = delete;

    bool QueryDword(const char* name, uint32_t& value) override {
        DWORD type = 0;
        DWORD data = 0;
        DWORD size = sizeof data;
        if (RegQueryValueExW(key_, Wide(name).c_str(), nullptr, &type, reinterpret_cast<BYTE*>(&data), &size) !=
                ERROR_SUCCESS ||
            type != REG_DWORD || size != sizeof data) {
            return false;
        }
        value = data;
        return true;
    }

    bool QueryString(const char* name, std::string& value) override {
        const std::wstring wideName = Wide(name);
        DWORD type = 0;
        DWORD size = 0;
        if (RegQueryValueExW(key_, wideName.c_str(), nullptr, &type, nullptr, &size) != ERROR_SUCCESS ||
            type != REG_SZ) {
            return false;
        }
        std::vector<wchar_t> buffer(size / sizeof(wchar_t) + 1, L'\0');
        DWORD capacity = static_cast<DWORD>(buffer.size() * sizeof(wchar_t));
        if (RegQueryValueExW(key_, wideName.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(buffer.data()),
                             &capacity) != ERROR_SUCCESS ||
            type != REG_SZ) {
            return false;
        }
        // The stored data may or may not carry its terminating NUL; stop at the first one.
        size_t length = capacity / sizeof(wchar_t);
        for (size_t i = 0; i < length; ++i) {
            if (buffer[i] == L'\0') {
                length = i;
                break;
            }
        }
        value = Utf8(std::wstring(buffer.data(), length));
        return true;
    }

    void SetDword(const char* name, uint32_t value) override {
        const DWORD data = value;
        RegSetValueExW(key_, Wide(name).c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&data), sizeof data);
    }

    void SetString(const char* name, const std::string& value) override {
        const std::wstring wide = Wide(value);
        // The byte size includes the terminating NUL: (characters + 1) * 2.
        RegSetValueExW(key_, Wide(name).c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(wide.c_str()),
                       static_cast<DWORD>((wide.size() + 1) * sizeof(wchar_t)));
    }

private:
    HKEY key_;
};

}  // namespace

std::string SettingsLocation() {
    std::lock_guard<std::mutex> lock(g_locationMutex);
    return g_location.empty() ? kDefaultKeyPath : g_location;
}

void SetSettingsLocation(const std::string& location) {
    std::lock_guard<std::mutex> lock(g_locationMutex);
    g_location = location;
}

std::unique_ptr<SettingsKey> OpenSettingsForRead() {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, Wide(SettingsLocation()).c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) {
        return nullptr;
    }
    return std::make_unique<RegistrySettingsKey>(key);
}

std::unique_ptr<SettingsKey> OpenSettingsForWrite() {
    HKEY key = nullptr;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, Wide(SettingsLocation()).c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                        KEY_WRITE, nullptr, &key, nullptr) != ERROR_SUCCESS) {
        return nullptr;
    }
    return std::make_unique<RegistrySettingsKey>(key);
}

}  // namespace platform
