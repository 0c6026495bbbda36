#include "ui/settings_dialog.h"

#include <optional>
#include <string>

#include "model/app_settings.h"
#include "ui/app.h"
#include "ui/control_ids.h"
#include "ui/controls.h"
#include "ui/file_dialogs.h"
#include "ui/main_window.h"
#include "ui/modal_window.h"
#include "ui/structures_page.h"

namespace ui {
namespace {

constexpr int kClientWidth = 470;
constexpr int kClientHeight = 500;

// The open dialog's window doubles as the "open" flag; it is cleared when the window goes.
HWND dialog = nullptr;

struct Controls {
    HWND system, light, dark, language, mqttEnabled, broker, port, qos, topicPrefix, clientId, user, password;
} c{};

void BuildControls(HWND window) {
    const AppSettings& s = Settings();
    ControlFactory f(window, nullptr, true);
    f.Group(T("Appearance", "Erscheinungsbild"), 8, 8, 454, 52);
    c.system = f.Radio(id::kThemeSystem, L"System", 20, 28, 82, 20, true);
    c.light = f.Radio(id::kThemeLight, T("Light", "Hell"), 108, 28, 62, 20, false);
    c.dark = f.Radio(id::kThemeDark, T("Dark", "Dunkel"), 178, 28, 72, 20, false);
    SetChecked(s.themeMode == 1 ? c.light : s.themeMode == 2 ? c.dark : c.system, true);

    f.Group(T("Language", "Sprache"), 8, 64, 454, 48);
    f.Label(T("Language:", "Sprache:"), 20, 83, 65, 16);
    // Any non-zero language is English.
    c.language = f.DropList(id::kLanguage, {L"Deutsch", T("English", "Englisch")}, s.language != 0 ? 1 : 0, 90, 80,
                            150, 200);
    f.Label(L"*", 248, 83, 10, 16);

    f.Group(T("Backup", "Datensicherung"), 8, 116, 454, 52);
    f.Button(id::kExportJson, T("Export JSON", "JSON exportieren"), 20, 136, 120, 24);
    f.Button(id::kImportJson, T("Import JSON", "JSON importieren"), 150, 136, 120, 24);

    f.Group(L"MQTT-Bridge", 8, 172, 454, 252);
    c.mqttEnabled = f.CheckBox(id::kMqttEnabled, T("Enabled", "Aktiviert"), 20, 192, 120, 20);
    SetChecked(c.mqttEnabled, s.mqttEnabled);
    f.Label(L"Broker:", 20, 223, 50, 16);
    c.broker = f.Edit(id::kMqttBroker, Wide(s.mqttBroker), 74, 220, 268, 22);
    f.Label(L"Port:", 20, 251, 35, 16);
    c.port = f.Edit(id::kMqttPort, std::to_wstring(s.mqttPort), 58, 248, 58, 22, ES_NUMBER);
    f.Label(L"QoS:", 128, 251, 30, 16);
    c.qos = f.Edit(id::kMqttQos, std::to_wstring(s.mqttQos), 161, 248, 40, 22, ES_NUMBER);
    f.Label(L"Topic-Prefix:", 20, 279, 80, 16);
    c.topicPrefix = f.Edit(id::kMqttTopicPrefix, Wide(s.mqttTopicPrefix), 104, 276, 238, 22);
    f.Label(L"Client-ID:", 20, 307, 60, 16);
    c.clientId = f.Edit(id::kMqttClientId, Wide(s.mqttClientId), 84, 304, 258, 22);
    f.Label(T("User:", "Benutzer:"), 20, 335, 58, 16);
    c.user = f.Edit(id::kMqttUser, Wide(s.mqttUsername), 82, 332, 260, 22);
    f.Label(T("Password:", "Passwort:"), 20, 363, 58, 16);
    c.password = f.Edit(id::kMqttPassword, Wide(s.mqttPassword), 82, 360, 260, 22, ES_PASSWORD);

    f.Label(T("* Theme/language take effect after restart.", "* Theme/Sprache werden nach dem Neustart \u00fcbernommen."),
            20, 430, 442, 16);
    f.Label(T("** MQTT sending will be enabled in a future version.",
              "** MQTT-Senden wird in einer sp\u00e4teren Version aktiviert."),
            20, 446, 442, 16);
    f.Button(id::kSettingsOk, L"OK", 135, 465, 88, 26, BS_DEFPUSHBUTTON);
    f.Button(id::kSettingsCancel, T("Cancel", "Abbrechen"), 249, 465, 88, 26);
}

void OnOk() {
    AppSettings s = Settings();
    s.themeMode = IsChecked(c.light) ? 1 : IsChecked(c.dark) ? 2 : 0;
    s.language = SelectedIndex(c.language);
    s.mqttEnabled = IsChecked(c.mqttEnabled);
    s.mqttBroker = Utf8(GetText(c.broker));
    s.mqttTopicPrefix = Utf8(GetText(c.topicPrefix));
    s.mqttClientId = Utf8(GetText(c.clientId));
    s.mqttUsername = Utf8(GetText(c.user));
    s.mqttPassword = Utf8(GetText(c.password));
    s.mqttPort = IntFromText(c.port);
    s.mqttQos = IntFromText(c.qos);
    ValidateSettings(s);
    SaveSettings(s);
    // Kept for the next opening of the dialog; the running program's language stays as it started.
    Settings() = s;
    DestroyWindow(dialog);
}

void OnExportJson() {
    const std::optional<std::wstring> path =
        AskSaveFileName(dialog, {{L"JSON-Dateien (*.json)", L"*.json"}}, L"json", L"modbus_structures.json");
    if (!path) return;
    if (structures_page::ExportStructuresFile(*path)) {
        ShowMessage(dialog, T("Export successful.", "Export erfolgreich."), T("Backup", "Datensicherung"),
                    MB_OK | MB_ICONINFORMATION);
    } else {
        ShowMessage(dialog, T("Export failed.", "Export fehlgeschlagen."), T("Error", "Fehler"), MB_OK | MB_ICONERROR);
    }
}

void OnImportJson() {
    const std::optional<std::wstring> path =
        AskOpenFileName(dialog, {{L"JSON-Dateien (*.json)", L"*.json"}, {L"Alle Dateien", L"*.*"}});
    if (!path) return;
    switch (structures_page::ImportStructuresFile(*path)) {
        case structures_page::ImportResult::CopyFailed:
            ShowMessage(dialog, T("Import failed.", "Import fehlgeschlagen."), T("Error", "Fehler"),
                        MB_OK | MB_ICONERROR);
            break;
        case structures_page::ImportResult::Imported:
            ShowMessage(dialog,
                        T("Import successful.\nThe structure list has been updated.",
                          "Import erfolgreich.\nDie Strukturliste wurde aktualisiert."),
                        T("Backup", "Datensicherung"), MB_OK | MB_ICONINFORMATION);
            break;
        case structures_page::ImportResult::Damaged: break;  // already reported, naming the file
    }
}

}  // namespace

LRESULT CALLBACK SettingsDialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case WM_CREATE:
            dialog = window;
            BuildControls(window);
            return 0;
        case WM_COMMAND:
            switch (LOWORD(wParam)) {
                case id::kSettingsOk: OnOk(); return 0;
                case id::kSettingsCancel:
                case IDCANCEL: DestroyWindow(window); return 0;
                case id::kExportJson: OnExportJson(); return 0;
                case id::kImportJson: OnImportJson(); return 0;
                default: break;
            }
            break;
        case DM_GETDEFID: return MAKELRESULT(id::kSettingsOk, DC_HASDEFID);
        case WM_CTLCOLORSTATIC:
            SetBkMode(reinterpret_cast<HDC>(wParam), TRANSPARENT);
            return reinterpret_cast<LRESULT>(GetSysColorBrush(COLOR_BTNFACE));
        case WM_DPICHANGED: OnDpiChanged(window, wParam, lParam); return 0;
        case WM_DESTROY:
            ForgetPlaces(window);
            dialog = nullptr;
            return 0;
        default: break;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

void ShowSettingsDialog(HWND owner) {
    if (dialog != nullptr) {
        SetForegroundWindow(dialog);
        return;
    }
    HWND window = CreateModalWindow(owner, kSettingsDialogClass, T("Settings", "Einstellungen"), kClientWidth,
                                    kClientHeight);
    SetFocus(GetDlgItem(window, id::kMqttBroker));
    RunModalLoop(owner, window, [] { return dialog != nullptr; });
}

}  // namespace ui
