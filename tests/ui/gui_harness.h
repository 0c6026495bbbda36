#pragma once
// Drives the real main window in the test's own process, as a user would: texts typed into the
// real controls, list items and radio buttons selected, buttons clicked by messages, messages
// pumped; then the controls' texts, states and the protocol log are read back. Message boxes are
// answered from a timer that runs inside their own modal loop; screenshots are taken from the
// screen (Xvfb with a Wine virtual desktop, see tools/wine-gui-run.sh).
#include <windows.h>

#include <functional>
#include <string>
#include <vector>

namespace gui {

// Starts the program as its entry point does, with `language` (1 English, 0 German) stored in the
// settings first, in a fresh, empty working folder. The window is shown and painted.
void StartApp(int language);
// Closes the window and starts the program again in the same working folder, with the settings as
// they are stored now (as a user restarting it would). Answers queued for dialogs stay queued.
void RestartApp();
// Closes the main window (WM_CLOSE, so WM_DESTROY runs the shut-down) and pumps until WM_QUIT.
// Returns whether WM_QUIT came.
bool CloseApp();
HWND MainWindow();
// The working folder of the running app (where it keeps modbus_structures.json), with a slash.
std::string WorkingFolder();

HWND Control(int id);
std::wstring Text(int id);
std::wstring Text(HWND control);
bool IsVisible(int id);
bool IsEnabled(int id);
bool IsChecked(int id);

// User actions. Click presses a button (a disabled one ignores it, as for a user); Type replaces
// an edit's text; Select picks a list item and notifies the window as the list would.
void Click(int id);
void Type(int id, const std::wstring& text);
void Select(int id, int index);
void SelectTab(int page);

// Processes the window's messages for the given time.
void Pump(int milliseconds = 30);
// Pumps until the condition holds or the time is up; returns the condition.
bool PumpUntil(const std::function<bool()>& condition, int timeoutMs);

// Message boxes (and other dialogs of class #32770) of this thread: each one that appears is
// recorded and answered with the next queued button (IDOK when none is queued), or handed to the
// next queued handler.
struct SeenDialog {
    std::wstring caption;
    std::wstring text;  // the message text of a message box
};
void AnswerNextDialog(int button);
void HandleNextDialog(std::function<void(HWND dialog)> handler);
std::vector<SeenDialog> SeenDialogs();
void ForgetSeenDialogs();
// Stops and restarts the timer that answers those dialogs. A test of a modal loop stops it, since
// its WM_TIMER messages would wake a loop that waits for a posted message.
void StopAnsweringDialogs();
void StartAnsweringDialogs();

// Saves the main window as build/screenshots/<name>.png (taken from the screen).
void Screenshot(const std::string& name);
// The same for another top-level window (a dialog).
void Screenshot(const std::string& name, HWND window);

// The colour on the screen at a point of a window's client area (after the window is redrawn).
COLORREF ScreenPixel(HWND window, int x, int y);

// The whole protocol log.
std::wstring LogText();

// A free TCP port on 127.0.0.1 (bound once and released).
uint16_t FreeTcpPort();

// The two ends of the serial pair the runner maps to COM ports ("COM7", "COM8").
std::string ComPortA();
std::string ComPortB();

}  // namespace gui
