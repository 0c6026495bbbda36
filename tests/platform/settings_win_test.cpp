// The registry backend under HKEY_CURRENT_USER: value types and sizes as Windows stores them, and
// a key that appears only with the first save. Each test uses a key of its own below
// Software\KestrelTest and deletes it again.
#if defined(_WIN32)
#include <windows.h>

#include <gtest/gtest.h>

#include "model/app_settings.h"
#include "platform/clock.h"
#include "platform/settings_store.h"

namespace {

class Registry : public ::testing::Test {
protected:
    void SetUp() override {
        path = L"Software\\KestrelTest\\" + std::to_wstring(GetCurrentProcessId()) + L"-" +
               std::to_wstring(platform::MonotonicMicroseconds());
        platform::SetSettingsLocation(std::string(path.begin(), path.end()));
    }
    void TearDown() override {
        RegDeleteTreeW(HKEY_CURRENT_USER, path.c_str());
        RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\KestrelTest");  // only when no other test still uses it
        platform::SetSettingsLocation("");
    }

    bool KeyExists() const {
        HKEY key = nullptr;
        if (RegOpenKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
        RegCloseKey(key);
        return true;
    }

    // The raw value: its type and bytes.
    bool Query(const wchar_t* name, DWORD& type, std::vector<BYTE>& data) const {
        HKEY key = nullptr;
        if (RegOpenKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
        DWORD size = 0;
        LONG r = RegQueryValueExW(key, name, nullptr, &type, nullptr, &size);
        data.assign(size, 0);
        if (r == ERROR_SUCCESS) r = RegQueryValueExW(key, name, nullptr, &type, data.data(), &size);
        RegCloseKey(key);
        return r == ERROR_SUCCESS;
    }

    void SetRaw(const wchar_t* name, DWORD type, const void* data, DWORD size) {
        HKEY key = nullptr;
        ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr),
                  ERROR_SUCCESS);
        RegSetValueExW(key, name, 0, type, static_cast<const BYTE*>(data), size);
        RegCloseKey(key);
    }

    std::wstring path;
};

}  // namespace

TEST(RegistryLocation, IsSoftwareKestrelUnderTheCurrentUser) {
    platform::SetSettingsLocation("");
    EXPECT_EQ(platform::SettingsLocation(), "Software\\Kestrel");
}

TEST_F(Registry, MissingKeyGivesDefaultsAndOnlyTheFirstSaveCreatesIt) {
    AppSettings settings;
    LoadSettings(settings);
    EXPECT_EQ(settings, AppSettings{});
    EXPECT_FALSE(KeyExists());
    SaveSettings(settings);
    EXPECT_TRUE(KeyExists());
}

TEST_F(Registry, SaveWritesDwordsAndWideStringsWithTheirNul) {
    AppSettings s;
    s.themeMode = 1;
    s.language = 1;
    s.mqttEnabled = true;
    s.mqttBroker = "tcp://h\xC3\xA4";  // 8 characters
    s.mqttPort = 8883;
    s.mqttPassword = "";
    s.mqttQos = 2;
    SaveSettings(s);

    DWORD type = 0;
    std::vector<BYTE> data;
    const struct {
        const wchar_t* name;
        DWORD value;
    } dwords[] = {{L"theme_mode", 1}, {L"language", 1}, {L"mqtt_enabled", 1}, {L"mqtt_port", 8883}, {L"mqtt_qos", 2}};
    for (const auto& d : dwords) {
        ASSERT_TRUE(Query(d.name, type, data));
        EXPECT_EQ(type, static_cast<DWORD>(REG_DWORD));
        ASSERT_EQ(data.size(), 4u);
        DWORD value = 0;
        memcpy(&value, data.data(), 4);
        EXPECT_EQ(value, d.value);
    }
    ASSERT_TRUE(Query(L"mqtt_broker", type, data));
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
    ASSERT_EQ(data.size(), (8u + 1u) * 2u);
    EXPECT_EQ(std::wstring(reinterpret_cast<const wchar_t*>(data.data())), L"tcp://h\u00e4");
    ASSERT_TRUE(Query(L"mqtt_password", type, data));
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
    EXPECT_EQ(data.size(), 2u);
    for (const wchar_t* name : {L"mqtt_topic_prefix", L"mqtt_client_id", L"mqtt_username"}) {
        ASSERT_TRUE(Query(name, type, data));
        EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
    }
    AppSettings loaded;
    LoadSettings(loaded);
    EXPECT_EQ(loaded, s);
}

TEST_F(Registry, LanguageSevenIsEnglishAndPortZeroStaysZero) {
    const DWORD seven = 7;
    const DWORD zero = 0;
    SetRaw(L"language", REG_DWORD, &seven, 4);
    SetRaw(L"mqtt_port", REG_DWORD, &zero, 4);
    AppSettings s;
    LoadSettings(s);
    EXPECT_EQ(s.language, 7);
    EXPECT_EQ(s.mqttPort, 0);
    EXPECT_EQ(s.mqttBroker, kDefaultMqttBroker);
    EXPECT_EQ(s.mqttTopicPrefix, "modbus");
}

TEST_F(Registry, StringsWithoutATerminatingNulAndValuesOfTheWrongType) {
    const wchar_t broker[] = {L't', L'c', L'p'};
    SetRaw(L"mqtt_broker", REG_SZ, broker, sizeof broker);
    SetRaw(L"mqtt_qos", REG_SZ, L"2", 4);
    const DWORD one = 1;
    SetRaw(L"mqtt_client_id", REG_DWORD, &one, 4);
    AppSettings s;
    LoadSettings(s);
    EXPECT_EQ(s.mqttBroker, "tcp");
    EXPECT_EQ(s.mqttQos, 0);
    EXPECT_EQ(s.mqttClientId, "Kestrel");
}
#endif
