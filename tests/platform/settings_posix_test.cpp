// The POSIX settings file: where it lives, its text, its tolerance, and that it appears only with
// the first save.
#if !defined(_WIN32)
#include <gtest/gtest.h>

#include <cstdlib>

#include "model/model_test_support.h"
#include "platform/settings_store.h"

namespace {

class SettingsFile : public ::testing::Test {
protected:
    void SetUp() override {
        const char* xdg = std::getenv("XDG_CONFIG_HOME");
        const char* home = std::getenv("HOME");
        savedXdg = xdg ? std::optional<std::string>(xdg) : std::nullopt;
        savedHome = home ? std::optional<std::string>(home) : std::nullopt;
        platform::SetSettingsLocation("");
    }
    void TearDown() override {
        Restore("XDG_CONFIG_HOME", savedXdg);
        Restore("HOME", savedHome);
        platform::SetSettingsLocation("");
    }
    static void Restore(const char* name, const std::optional<std::string>& value) {
        if (value) setenv(name, value->c_str(), 1);
        else unsetenv(name);
    }

    ScratchFolder folder;
    std::optional<std::string> savedXdg;
    std::optional<std::string> savedHome;
};

}  // namespace

TEST_F(SettingsFile, LivesInXdgConfigHomeElseInDotConfig) {
    setenv("XDG_CONFIG_HOME", folder.File("xdg").c_str(), 1);
    EXPECT_EQ(platform::SettingsLocation(), folder.File("xdg") + "/kestrel/settings");
    unsetenv("XDG_CONFIG_HOME");
    setenv("HOME", folder.File("home").c_str(), 1);
    EXPECT_EQ(platform::SettingsLocation(), folder.File("home") + "/.config/kestrel/settings");
    // A relative XDG_CONFIG_HOME is ignored, as the base directory rules say.
    setenv("XDG_CONFIG_HOME", "relative", 1);
    EXPECT_EQ(platform::SettingsLocation(), folder.File("home") + "/.config/kestrel/settings");
    platform::SetSettingsLocation(folder.File("elsewhere"));
    EXPECT_EQ(platform::SettingsLocation(), folder.File("elsewhere"));
}

TEST_F(SettingsFile, TheFileAndItsFoldersAppearOnlyWithTheFirstSave) {
    setenv("XDG_CONFIG_HOME", folder.File("xdg").c_str(), 1);
    EXPECT_EQ(platform::OpenSettingsForRead(), nullptr);
    EXPECT_FALSE(platform::FileExists(folder.File("xdg")));
    {
        auto key = platform::OpenSettingsForWrite();
        ASSERT_NE(key, nullptr);
        key->SetDword("theme_mode", 2);
        key->SetString("mqtt_broker", "tcp://a");
    }
    EXPECT_EQ(ReadText(folder.File("xdg/kestrel/settings")), "theme_mode=REG_DWORD:2\nmqtt_broker=REG_SZ:tcp://a\n");
    EXPECT_FALSE(platform::FileExists(folder.File("xdg/kestrel/settings.tmp")));
}

TEST_F(SettingsFile, ValuesKeepTheirTypesAndStringsTheirBytes) {
    platform::SetSettingsLocation(folder.File("s"));
    {
        auto key = platform::OpenSettingsForWrite();
        key->SetDword("mqtt_port", 4294967295u);
        key->SetString("mqtt_password", "a\\b\nc\rd=e \xC3\xA4");
        key->SetString("mqtt_username", "");
    }
    EXPECT_EQ(ReadText(folder.File("s")),
              "mqtt_port=REG_DWORD:4294967295\nmqtt_password=REG_SZ:a\\\\b\\nc\\rd=e \xC3\xA4\nmqtt_username=REG_SZ:\n");
    auto key = platform::OpenSettingsForRead();
    ASSERT_NE(key, nullptr);
    uint32_t port = 0;
    EXPECT_TRUE(key->QueryDword("mqtt_port", port));
    EXPECT_EQ(port, 4294967295u);
    std::string text;
    EXPECT_TRUE(key->QueryString("mqtt_password", text));
    EXPECT_EQ(text, "a\\b\nc\rd=e \xC3\xA4");
    EXPECT_TRUE(key->QueryString("mqtt_username", text));
    EXPECT_EQ(text, "");
    EXPECT_FALSE(key->QueryString("mqtt_port", text));
    EXPECT_FALSE(key->QueryDword("mqtt_password", port));
    EXPECT_FALSE(key->QueryDword("missing", port));
}

TEST_F(SettingsFile, DamagedLinesAreSkippedAndOtherValuesKeptOnSave) {
    platform::SetSettingsLocation(folder.File("s"));
    WriteText(folder.File("s"),
              "garbage\n=REG_DWORD:1\nlanguage=REG_DWORD:-1\ntheme_mode=REG_DWORD:99999999999\n"
              "mqtt_qos=REG_DWORD:2x\nmqtt_port=REG_DWORD:1884\nvendor_value=REG_SZ:kept\nmqtt_broker=REG_BINARY:00\n"
              "\xFF\xFE\n");
    {
        auto key = platform::OpenSettingsForRead();
        ASSERT_NE(key, nullptr);
        uint32_t v = 0;
        EXPECT_FALSE(key->QueryDword("language", v));
        EXPECT_FALSE(key->QueryDword("theme_mode", v));
        EXPECT_FALSE(key->QueryDword("mqtt_qos", v));
        std::string s;
        EXPECT_FALSE(key->QueryString("mqtt_broker", s));
        ASSERT_TRUE(key->QueryDword("mqtt_port", v));
        EXPECT_EQ(v, 1884u);
    }
    platform::OpenSettingsForWrite()->SetDword("language", 1);
    EXPECT_EQ(ReadText(folder.File("s")), "language=REG_DWORD:1\nmqtt_port=REG_DWORD:1884\nvendor_value=REG_SZ:kept\n");
}

TEST_F(SettingsFile, AnUnwritableLocationLosesTheChangeSilently) {
    WriteText(folder.File("file"), "x");
    platform::SetSettingsLocation(folder.File("file/settings"));  // a folder that is a file
    auto key = platform::OpenSettingsForWrite();
    if (key) key->SetDword("language", 1);
    key.reset();
    EXPECT_EQ(platform::OpenSettingsForRead(), nullptr);
}
#endif
