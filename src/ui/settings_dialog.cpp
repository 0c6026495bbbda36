#include "ui/settings_dialog.h"

namespace ui {

LRESULT CALLBACK SettingsDialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    return DefWindowProcW(window, message, wParam, lParam);
}

void ShowSettingsDialog(HWND) {}

}  // namespace ui
