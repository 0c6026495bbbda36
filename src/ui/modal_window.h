#pragma once
// The two dialogs are plain top-level windows of their own classes run modally: the owner is
// disabled while the window is open, and a local message loop gives it the keyboard handling of a
// dialog (Tab and Shift+Tab move between controls, Enter presses the default button, Esc cancels).
#include <windows.h>

#include <functional>
#include <string>

namespace ui {

// Creates the window (popup with caption and system menu) with a client area of the given design
// size (scaled to the owner's DPI), centred over the owner, disables the owner and shows the window.
HWND CreateModalWindow(HWND owner, const wchar_t* windowClass, const std::wstring& caption, int clientWidth,
                       int clientHeight);
// Runs the window's messages until `isOpen` turns false (the window was destroyed), then enables
// the owner again and brings it to the front. A WM_QUIT met here is posted again for the main loop.
void RunModalLoop(HWND owner, HWND window, const std::function<bool()>& isOpen);

}  // namespace ui
