// AppSettings through the platform's settings store, pointed at a private location (a scratch
// file on POSIX, a scratch registry key under HKEY_CURRENT_USER on Windows) so that the user's own
// settings are never touched.
#include "model/app_settings.h"

#include <gtest/gtest.h>

#include "common/localizer.h"
#include "model_test_support.h"
#include "platform/settings_store.h"

#if defined(_WIN32)
#include <windows.h>
#endif

namespace {

class Settings : public ::testing::Test {
protected:
    void SetUp() override {
#if defined(_WIN32)
        location = "Software\\KestrelTest\\" + std::to_string(GetCurrentProcessId()) + "-" +
                   std::to_string(platform::MonotonicMicroseconds());
#else
        location = folder.File("config/kestrel/settings");
#endif
        platform::SetSettingsLocation(location);
    }

    void TearDown() override {
#if defined(_WIN32)
        const std::wstring key(location.begin(), location.end());
        RegDeleteTreeW(HKEY_CURRENT_USER, key.c_str());
        RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\KestrelTest");  // only when no other test still uses it
#endif
        platform::SetSettingsLocation("");
        Localizer::SetAllLanguages(0);
    }

    bool KeyExists() const { return platform::OpenSettingsForRead() != nullptr; }

    ScratchFolder folder;
    std::string location;
};

}  // namespace

TEST_F(Settings, FirstStartKeepsTheDefaultsAndCreatesNothing) {
    AppSettings settings;
    LoadSettings(settings);
    EXPECT_EQ(settings.themeMode, 0);
    EXPECT_EQ(settings.language, 0);
    EXPECT_FALSE(settings.mqttEnabled);
    EXPECT_EQ(settings.mqttBroker, "tcp://broker.hivemq.com");
    EXPECT_EQ(settings.mqttPort, 1883);
    EXPECT_EQ(settings.mqttTopicPrefix, "modbus");
    EXPECT_EQ(settings.mqttClientId, "Kestrel");
    EXPECT_EQ(settings.mqttUsername, "");
    EXPECT_EQ(settings.mqttPassword, "");
    EXPECT_EQ(settings.mqttQos, 0);
    ApplyLanguageFlags(settings);
    EXPECT_FALSE(Localizer::IsEnglish(Localizer::Scope::Ui));
    EXPECT_FALSE(Localizer::IsEnglish(Localizer::Scope::Messages));
    EXPECT_FALSE(Localizer::IsEnglish(Localizer::Scope::Connection));
    EXPECT_FALSE(KeyExists());

    SaveSettings(settings);
    EXPECT_TRUE(KeyExists());
}

TEST_F(Settings, WithoutAKeyTheRecordIsLeftAsItIs) {
    AppSettings settings;
    settings.language = 1;
    settings.mqttPort = 99;
    LoadSettings(settings);
    EXPECT_EQ(settings.language, 1);
    EXPECT_EQ(settings.mqttPort, 99);
}

TEST_F(Settings, SaveThenLoadReproducesEveryField) {
    AppSettings saved;
    saved.themeMode = 2;
    saved.language = 1;
    saved.mqttEnabled = true;
    saved.mqttBroker = "tcp://broker.example:1884";
    saved.mqttPort = 8883;
    saved.mqttTopicPrefix = "plant/\xC3\xA4\xE2\x82\xAC";
    saved.mqttClientId = "client id with spaces";
    saved.mqttUsername = "user";
    saved.mqttPassword = "p=ss\\word\nline";
    saved.mqttQos = 2;
    SaveSettings(saved);
    AppSettings loaded;
    LoadSettings(loaded);
    EXPECT_EQ(loaded, saved);
}

TEST_F(Settings, AnyNonZeroLanguageIsEnglish) {
    platform::OpenSettingsForWrite()->SetDword("language", 7);
    AppSettings settings;
    LoadSettings(settings);
    EXPECT_EQ(settings.language, 7);
    ApplyLanguageFlags(settings);
    EXPECT_TRUE(Localizer::IsEnglish(Localizer::Scope::Ui));
    EXPECT_TRUE(Localizer::IsEnglish(Localizer::Scope::Messages));
    EXPECT_TRUE(Localizer::IsEnglish(Localizer::Scope::Connection));
}

TEST_F(Settings, MissingValuesOfAnExistingKeyGiveTheDefaultsNotThePreviousValues) {
    platform::OpenSettingsForWrite()->SetDword("theme_mode", 1);
    AppSettings settings;
    settings.language = 1;
    settings.mqttEnabled = true;
    settings.mqttQos = 2;
    settings.mqttPort = 5;
    settings.mqttBroker = "tcp://previous";
    settings.mqttClientId = "previous";
    LoadSettings(settings);
    EXPECT_EQ(settings.themeMode, 1);
    EXPECT_EQ(settings.language, 0);
    EXPECT_FALSE(settings.mqttEnabled);
    EXPECT_EQ(settings.mqttQos, 0);
    EXPECT_EQ(settings.mqttPort, 1883);
    EXPECT_EQ(settings.mqttBroker, kDefaultMqttBroker);
    EXPECT_EQ(settings.mqttClientId, "Kestrel");
}

TEST_F(Settings, PortZeroIsLoadedAsZeroAndOnlyCorrectedByValidation) {
    AppSettings saved;
    saved.mqttPort = 0;
    saved.mqttQos = 5;
    SaveSettings(saved);
    AppSettings loaded;
    LoadSettings(loaded);
    EXPECT_EQ(loaded.mqttPort, 0);
    EXPECT_EQ(loaded.mqttQos, 5);
    ValidateSettings(loaded);
    EXPECT_EQ(loaded.mqttPort, 1883);
    EXPECT_EQ(loaded.mqttQos, 0);
}

TEST_F(Settings, ValidationBounds) {
    AppSettings s;
    s.mqttPort = 70000;
    s.mqttQos = -1;
    ValidateSettings(s);
    EXPECT_EQ(s.mqttPort, 1883);
    EXPECT_EQ(s.mqttQos, 0);
    s.mqttPort = 1;
    s.mqttQos = 2;
    ValidateSettings(s);
    EXPECT_EQ(s.mqttPort, 1);
    EXPECT_EQ(s.mqttQos, 2);
    s.mqttPort = 65535;
    ValidateSettings(s);
    EXPECT_EQ(s.mqttPort, 65535);
}

TEST_F(Settings, AnyNonZeroMqttEnabledReadsAsTrueAndIsWrittenAsOne) {
    platform::OpenSettingsForWrite()->SetDword("mqtt_enabled", 42);
    AppSettings settings;
    LoadSettings(settings);
    EXPECT_TRUE(settings.mqttEnabled);
    SaveSettings(settings);
    uint32_t stored = 0;
    ASSERT_TRUE(platform::OpenSettingsForRead()->QueryDword("mqtt_enabled", stored));
    EXPECT_EQ(stored, 1u);
}

TEST_F(Settings, AValueOfTheWrongTypeCountsAsMissing) {
    {
        auto key = platform::OpenSettingsForWrite();
        key->SetString("language", "1");
        key->SetDword("mqtt_broker", 5);
    }
    AppSettings settings;
    LoadSettings(settings);
    EXPECT_EQ(settings.language, 0);
    EXPECT_EQ(settings.mqttBroker, kDefaultMqttBroker);
}
