#pragma once
// The settings dialog: theme, language, the MQTT bridge fields and the backup of the structures
// file, in a modal top-level window of its own class.
#include <windows.h>

namespace ui {

inline constexpr const wchar_t* kSettingsDialogClass = L"KestrelSettingsDlg";

LRESULT CALLBACK SettingsDialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
// Opens the dialog and runs its message loop until it closes; brings an open one to the front.
void ShowSettingsDialog(HWND owner);

}  // namespace ui
