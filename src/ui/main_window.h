#pragma once
// The application shell: start-up, the main window with its tab pages, the window procedure that
// routes commands, notifications and the workers' posted messages, and the shut-down order.
#include <windows.h>

namespace ui {

inline constexpr const wchar_t* kMainWindowClass = L"KestrelAppWndClass";

// Start-up steps before the window: common controls and the three window classes.
void InitialiseControlsAndClasses(HINSTANCE instance);
// Loads the settings and copies the language into the window and into every subsystem's texts.
void LoadSettingsAndLanguage();
// Creates the main window (CreateUI runs during this call); returns it, not yet shown.
HWND CreateMainWindow();
// The message loop; returns the exit code of WM_QUIT.
int RunMessageLoop();
// All of the above in order, with the window shown: the body of wWinMain.
int RunApplication(HINSTANCE instance, int showCommand);

LRESULT CALLBACK WndProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
void CreateUI(HWND window);
// WM_DPICHANGED of the main window or a dialog: every control is laid out at the new DPI (from
// wParam) with the fonts of that DPI, and the window takes the rectangle Windows suggests (lParam).
void OnDpiChanged(HWND window, WPARAM wParam, LPARAM lParam);
// Selects the tab and shows exactly the controls of that page (0 to 3).
void SwitchPage(int page);
int CurrentPage();

}  // namespace ui
