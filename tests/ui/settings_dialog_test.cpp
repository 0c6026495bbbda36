// The Settings dialog: its controls at their places in both languages, modal over the main window
// with a dialog's keyboard handling, validation and saving to the registry (and a restart that
// picks up the language), Cancel, bring-to-front when it is already open, and the backup of the
// structures file (export and import through the file dialogs).
#include <windows.h>
#include <commctrl.h>

#include <gtest/gtest.h>

#include <tuple>

#include "dialog_driver.h"
#include "gui_harness.h"
#include "model/app_settings.h"
#include "ui/app.h"
#include "ui/control_ids.h"
#include "ui/controls.h"
#include "ui/posted_messages.h"
#include "ui_test_support.h"

namespace {

using namespace gui;
namespace id = ui::id;

constexpr const wchar_t* kDialogClass = L"KestrelSettingsDlg";

class SettingsDialog : public WindowTest {
protected:
    bool WithDialog(std::vector<DialogStep> steps) {
        return RunModal([] { Click(id::kSettings); }, kDialogClass, std::move(steps));
    }
    static AppSettings Stored() {
        AppSettings settings;
        settings.mqttBroker = "unset";
        LoadSettings(settings);
        return settings;
    }
    std::vector<std::wstring> ChildTextsOf(HWND window) {
        std::vector<std::wstring> texts;
        for (HWND child = GetWindow(window, GW_CHILD); child != nullptr; child = GetWindow(child, GW_HWNDNEXT))
            texts.push_back(Text(child));
        return texts;
    }
    SeenDialog LastDialog(size_t expectedCount) {
        PumpUntil([&] { return SeenDialogs().size() >= expectedCount; }, 3000);
        const auto seen = SeenDialogs();
        return seen.empty() ? SeenDialog{} : seen.back();
    }
    std::wstring StructuresFile() { return ui::Wide(WorkingFolder()) + L"modbus_structures.json"; }
};

TEST_P(SettingsDialog, ShowsEveryControlAtItsPlaceFilledFromTheSettings) {
    const bool ran = WithDialog({[&](HWND d) {
        EXPECT_EQ(Text(d), Lang(L"Settings", L"Einstellungen"));
        EXPECT_FALSE(IsWindowEnabled(MainWindow()));
        RECT client{};
        GetClientRect(d, &client);
        EXPECT_EQ(client.right, 470);
        EXPECT_EQ(client.bottom, 500);
        const LONG style = GetWindowLongW(d, GWL_STYLE);
        EXPECT_TRUE(style & WS_POPUP);
        EXPECT_EQ(style & WS_CAPTION, WS_CAPTION);
        EXPECT_TRUE(style & WS_SYSMENU);
        // Centred over the main window.
        RECT outer{}, main{};
        GetWindowRect(d, &outer);
        GetWindowRect(MainWindow(), &main);
        EXPECT_LE(std::abs((outer.left + outer.right) - (main.left + main.right)), 2);
        EXPECT_LE(std::abs((outer.top + outer.bottom) - (main.top + main.bottom)), 2);

        for (const auto& [control, x, y, w, h] : std::vector<std::tuple<int, int, int, int, int>>{
                 {id::kThemeSystem, 20, 28, 82, 20},     {id::kThemeLight, 108, 28, 62, 20},
                 {id::kThemeDark, 178, 28, 72, 20},      {id::kExportJson, 20, 136, 120, 24},
                 {id::kImportJson, 150, 136, 120, 24},   {id::kMqttEnabled, 20, 192, 120, 20},
                 {id::kMqttBroker, 74, 220, 268, 22},    {id::kMqttPort, 58, 248, 58, 22},
                 {id::kMqttQos, 161, 248, 40, 22},       {id::kMqttTopicPrefix, 104, 276, 238, 22},
                 {id::kMqttClientId, 84, 304, 258, 22},  {id::kMqttUser, 82, 332, 260, 22},
                 {id::kMqttPassword, 82, 360, 260, 22},  {id::kSettingsOk, 135, 465, 88, 26},
                 {id::kSettingsCancel, 249, 465, 88, 26}}) {
            const RECT r = ChildRect(d, control);
            EXPECT_EQ(r.left, x) << control;
            EXPECT_EQ(r.top, y) << control;
            EXPECT_EQ(r.right - r.left, w) << control;
            EXPECT_EQ(r.bottom - r.top, h) << control;
        }
        const RECT language = ChildRect(d, id::kLanguage);
        EXPECT_EQ(language.left, 90);
        EXPECT_EQ(language.top, 80);
        EXPECT_EQ(language.right - language.left, 150);

        const auto texts = ChildTextsOf(d);
        auto has = [&](const std::wstring& text) { return std::find(texts.begin(), texts.end(), text) != texts.end(); };
        for (const auto& [english, german] : std::vector<std::pair<const wchar_t*, const wchar_t*>>{
                 {L"Appearance", L"Erscheinungsbild"},
                 {L"System", L"System"},
                 {L"Light", L"Hell"},
                 {L"Dark", L"Dunkel"},
                 {L"Language", L"Sprache"},
                 {L"Language:", L"Sprache:"},
                 {L"*", L"*"},
                 {L"Backup", L"Datensicherung"},
                 {L"Export JSON", L"JSON exportieren"},
                 {L"Import JSON", L"JSON importieren"},
                 {L"MQTT-Bridge", L"MQTT-Bridge"},
                 {L"Enabled", L"Aktiviert"},
                 {L"Broker:", L"Broker:"},
                 {L"Port:", L"Port:"},
                 {L"QoS:", L"QoS:"},
                 {L"Topic-Prefix:", L"Topic-Prefix:"},
                 {L"Client-ID:", L"Client-ID:"},
                 {L"User:", L"Benutzer:"},
                 {L"Password:", L"Passwort:"},
                 {L"* Theme/language take effect after restart.",
                  L"* Theme/Sprache werden nach dem Neustart \u00fcbernommen."},
                 {L"** MQTT sending will be enabled in a future version.",
                  L"** MQTT-Senden wird in einer sp\u00e4teren Version aktiviert."},
                 {L"OK", L"OK"},
                 {L"Cancel", L"Abbrechen"}}) {
            EXPECT_TRUE(has(Lang(english, german))) << ui::Utf8(english);
        }
        EXPECT_EQ(ComboItems(Child(d, id::kLanguage)),
                  (std::vector<std::wstring>{L"Deutsch", Lang(L"English", L"Englisch")}));
        EXPECT_EQ(SendMessageW(Child(d, id::kLanguage), CB_GETCURSEL, 0, 0), Language());
        EXPECT_EQ(SendMessageW(Child(d, id::kThemeSystem), BM_GETCHECK, 0, 0), BST_CHECKED);
        EXPECT_EQ(SendMessageW(Child(d, id::kMqttEnabled), BM_GETCHECK, 0, 0), BST_UNCHECKED);
        EXPECT_EQ(Text(Child(d, id::kMqttBroker)), L"tcp://broker.hivemq.com");
        EXPECT_EQ(Text(Child(d, id::kMqttPort)), L"1883");
        EXPECT_EQ(Text(Child(d, id::kMqttQos)), L"0");
        EXPECT_EQ(Text(Child(d, id::kMqttTopicPrefix)), L"modbus");
        EXPECT_EQ(Text(Child(d, id::kMqttClientId)), L"Kestrel");
        EXPECT_TRUE(GetWindowLongW(Child(d, id::kMqttPassword), GWL_STYLE) & ES_PASSWORD);
        EXPECT_TRUE(GetWindowLongW(Child(d, id::kMqttPort), GWL_STYLE) & ES_NUMBER);
        EXPECT_TRUE(GetWindowLongW(Child(d, id::kMqttBroker), GWL_EXSTYLE) & WS_EX_CLIENTEDGE);
        TypeChild(d, id::kMqttPassword, L"secret");
        Screenshot(Prefix() + "settings-dialog", d);
        ClickChild(d, id::kSettingsCancel);
    }});
    EXPECT_TRUE(ran);
    EXPECT_EQ(FindTopLevel(kDialogClass), nullptr);
    EXPECT_TRUE(IsWindowEnabled(MainWindow()));
}

TEST_P(SettingsDialog, OkValidatesAndSavesAndARestartPicksUpTheLanguage) {
    const int otherLanguage = English() ? 0 : 1;
    EXPECT_TRUE(WithDialog({[&](HWND d) {
        ClickChild(d, id::kThemeDark);
        SelectChild(d, id::kLanguage, otherLanguage);
        ClickChild(d, id::kMqttEnabled);
        TypeChild(d, id::kMqttBroker, L"tcp://10.0.0.1");
        TypeChild(d, id::kMqttPort, L"0");
        TypeChild(d, id::kMqttQos, L"5");
        TypeChild(d, id::kMqttTopicPrefix, L"");
        TypeChild(d, id::kMqttClientId, L" id with blanks ");
        TypeChild(d, id::kMqttUser, L"J\u00fcrgen");
        TypeChild(d, id::kMqttPassword, L"pw");
        ClickChild(d, id::kSettingsOk);
    }}));
    AppSettings stored = Stored();
    EXPECT_EQ(stored.themeMode, 2);
    EXPECT_EQ(stored.language, otherLanguage);
    EXPECT_TRUE(stored.mqttEnabled);
    EXPECT_EQ(stored.mqttBroker, "tcp://10.0.0.1");
    EXPECT_EQ(stored.mqttPort, 1883);  // 0 is out of range
    EXPECT_EQ(stored.mqttQos, 0);      // 5 is out of range
    EXPECT_EQ(stored.mqttTopicPrefix, "");
    EXPECT_EQ(stored.mqttClientId, " id with blanks ");
    EXPECT_EQ(stored.mqttUsername, "J\xC3\xBCrgen");
    EXPECT_EQ(stored.mqttPassword, "pw");
    // The running program keeps its language until it is started again.
    EXPECT_EQ(ui::App().language, Language());
    EXPECT_EQ(Text(id::kSettings), Lang(L"Settings", L"Einstellungen"));

    // Opened again it shows what was saved; 70000 is out of range too, QoS 2 is kept.
    EXPECT_TRUE(WithDialog({[&](HWND d) {
        EXPECT_EQ(SendMessageW(Child(d, id::kThemeDark), BM_GETCHECK, 0, 0), BST_CHECKED);
        EXPECT_EQ(Text(Child(d, id::kMqttPort)), L"1883");
        TypeChild(d, id::kMqttPort, L"70000");
        TypeChild(d, id::kMqttQos, L"2");
        ClickChild(d, id::kSettingsOk);
    }}));
    stored = Stored();
    EXPECT_EQ(stored.mqttPort, 1883);
    EXPECT_EQ(stored.mqttQos, 2);

    RestartApp();
    const bool nowEnglish = otherLanguage != 0;
    EXPECT_EQ(ui::App().language, otherLanguage);
    EXPECT_EQ(Text(MainWindow()), nowEnglish ? L"Kestrel    TCP/RTU - Master & Slave (all 16 Function Codes)"
                                             : L"Kestrel    TCP/RTU - Master & Slave (alle 16 Funktionscodes)");
    EXPECT_EQ(Text(id::kSettings), nowEnglish ? L"Settings" : L"Einstellungen");
    EXPECT_EQ(TabText(1), nowEnglish ? L"Structures" : L"Strukturen");
    Screenshot(Prefix() + "after-restart-in-the-other-language");
}

TEST_P(SettingsDialog, CancelEscapeAndClosingDiscardTheEdits) {
    const AppSettings before = Stored();
    EXPECT_TRUE(WithDialog({[&](HWND d) {
        TypeChild(d, id::kMqttBroker, L"tcp://changed");
        ClickChild(d, id::kThemeLight);
        ClickChild(d, id::kSettingsCancel);
    }}));
    EXPECT_EQ(Stored(), before);
    EXPECT_TRUE(WithDialog({[&](HWND d) {
        TypeChild(d, id::kMqttBroker, L"tcp://changed");
        PostMessageW(d, WM_CLOSE, 0, 0);
    }}));
    EXPECT_EQ(Stored(), before);
    // Esc in a field cancels, as in a dialog.
    EXPECT_TRUE(WithDialog({[&](HWND d) {
        TypeChild(d, id::kMqttBroker, L"tcp://changed");
        SetFocus(Child(d, id::kMqttBroker));
        PostMessageW(Child(d, id::kMqttBroker), WM_KEYDOWN, VK_ESCAPE, 0);
    }}));
    EXPECT_EQ(Stored(), before);
    EXPECT_EQ(FindTopLevel(kDialogClass), nullptr);
}

TEST_P(SettingsDialog, TabMovesTheFocusAndEnterConfirms) {
    HWND focusAfterTab = nullptr;
    HWND focusAfterShiftTab = nullptr;
    EXPECT_TRUE(WithDialog({[&](HWND d) {
                                SetForegroundWindow(d);
                                SetFocus(Child(d, id::kMqttBroker));
                                PostMessageW(Child(d, id::kMqttBroker), WM_KEYDOWN, VK_TAB, 0);
                            },
                            [&](HWND d) {
                                focusAfterTab = GetFocus();
                                EXPECT_EQ(focusAfterTab, Child(d, id::kMqttPort));
                                TypeChild(d, id::kMqttPort, L"8883");
                                SetFocus(Child(d, id::kMqttQos));
                                PostMessageW(Child(d, id::kMqttQos), WM_KEYDOWN, VK_RETURN, 0);
                            }}));
    (void)focusAfterShiftTab;
    // Enter pressed the default button, OK.
    EXPECT_EQ(FindTopLevel(kDialogClass), nullptr);
    EXPECT_EQ(Stored().mqttPort, 8883);
}

TEST_P(SettingsDialog, OpeningItAgainBringsTheOpenOneToTheFront) {
    EXPECT_TRUE(WithDialog({[&](HWND d) {
        SetForegroundWindow(MainWindow());
        // The Settings button's command while the dialog is open.
        SendMessageW(MainWindow(), WM_COMMAND, MAKEWPARAM(id::kSettings, BN_CLICKED), 0);
        EXPECT_EQ(CountTopLevel(kDialogClass), 1);
        EXPECT_EQ(GetForegroundWindow(), d);
        ClickChild(d, id::kSettingsCancel);
    }}));
    EXPECT_EQ(CountTopLevel(kDialogClass), 0);
}

TEST_P(SettingsDialog, ExportsAndImportsTheStructuresFile) {
    SelectTab(ui::kStructuresPage);
    Click(id::kStructureDemo);
    const std::wstring folder = ArtifactFolder();
    const std::wstring tag = ui::Wide(Prefix()) + std::to_wstring(GetCurrentProcessId());
    const std::wstring backup = folder + L"backup-" + tag + L".json";
    DeleteFileW(backup.c_str());
    const std::wstring imported = folder + L"import-" + tag + L".json";
    WriteWholeFile(imported,
                   "{\n  \"structures\": [\n    {\n      \"id\": 9,\n      \"name\": \"Imported\",\n"
                   "      \"description\": \"\",\n      \"ip\": \"10.1.1.1\",\n      \"port\": 502,\n"
                   "      \"unitId\": 2,\n      \"rtuOverTcp\": false,\n      \"details\": [\n      ]\n    }\n  ]\n}\n");
    const std::wstring notJson = folder + L"not-json-" + tag + L".txt";
    WriteWholeFile(notJson, "hello");
    const std::wstring damaged = folder + L"damaged-" + tag + L".json";
    WriteWholeFile(damaged, "{ \"id\": 1, \"ip\": \"1.2.3.4\", \"port\": 99999999999 }");

    std::wstring suggested;
    const bool ran = WithDialog(
        {[&](HWND d) {
             // Export: the file as saved, copied to the chosen place.
             AnswerFileDialog(backup, &suggested);
             ClickChild(d, id::kExportJson);
         },
         [&](HWND d) {
             const SeenDialog box = LastDialog(2);
             EXPECT_EQ(suggested, L"modbus_structures.json");
             EXPECT_EQ(box.caption, Lang(L"Backup", L"Datensicherung"));
             EXPECT_EQ(box.text, Lang(L"Export successful.", L"Export erfolgreich."));
             EXPECT_EQ(ReadWholeFile(backup), ReadWholeFile(StructuresFile()));
             EXPECT_NE(ReadWholeFile(backup).find("Demo-Geraet"), std::string::npos);
             // A cancelled import does nothing.
             CancelFileDialog();
             ClickChild(d, id::kImportJson);
             EXPECT_EQ(SeenDialogs().size(), 3u);
             EXPECT_EQ(ListRowCount(Control(id::kStructureList)), 1);
             // Import: copied over the structures file and read; the list follows at once.
             AnswerFileDialog(imported);
             ClickChild(d, id::kImportJson);
         },
         [&](HWND d) {
             const SeenDialog box = LastDialog(5);
             EXPECT_EQ(box.caption, Lang(L"Backup", L"Datensicherung"));
             EXPECT_EQ(box.text, Lang(L"Import successful.\nThe structure list has been updated.",
                                      L"Import erfolgreich.\nDie Strukturliste wurde aktualisiert."));
             EXPECT_EQ(ListRowCount(Control(id::kStructureList)), 1);
             EXPECT_EQ(ListCell(Control(id::kStructureList), 0, 0), L"Imported");
             EXPECT_EQ(ui::App().selectedStructureId, 0);
             EXPECT_TRUE(IsWindow(d));  // the dialog stays open
             ClickChild(d, id::kSettingsCancel);
         }});
    EXPECT_TRUE(ran);
    // Cancel does not undo the import.
    ASSERT_EQ(ListRowCount(Control(id::kStructureList)), 1);
    EXPECT_EQ(ListCell(Control(id::kStructureList), 0, 0), L"Imported");
    EXPECT_NE(ReadWholeFile(StructuresFile()).find("Imported"), std::string::npos);

    // A file that is no JSON at all is copied and yields an empty list; a damaged one is reported
    // by name.
    ForgetSeenDialogs();
    EXPECT_TRUE(WithDialog({[&](HWND d) {
                                AnswerFileDialog(notJson);
                                ClickChild(d, id::kImportJson);
                            },
                            [&](HWND d) {
                                EXPECT_EQ(LastDialog(2).text, Lang(L"Import successful.\nThe structure list has been updated.",
                                                                   L"Import erfolgreich.\nDie Strukturliste wurde aktualisiert."));
                                EXPECT_EQ(ListRowCount(Control(id::kStructureList)), 0);
                                AnswerFileDialog(damaged);
                                HandleNextDialog([&](HWND box) {
                                    Screenshot(Prefix() + "settings-import-damaged-file", box);
                                    PostMessageW(box, WM_COMMAND, MAKEWPARAM(IDOK, BN_CLICKED), 0);
                                });
                                ClickChild(d, id::kImportJson);
                            },
                            [&](HWND d) {
                                const SeenDialog box = LastDialog(4);
                                EXPECT_NE(box.text.find(L"modbus_structures.json"), std::wstring::npos)
                                    << ui::Utf8(box.text);
                                EXPECT_NE(box.text.find(L"stoi"), std::wstring::npos) << ui::Utf8(box.text);
                                ClickChild(d, id::kSettingsOk);
                            }}));
}

INSTANTIATE_TEST_SUITE_P(, SettingsDialog, testing::Values(1, 0), LanguageName);

}  // namespace
