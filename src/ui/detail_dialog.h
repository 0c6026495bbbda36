#pragma once
// The detail dialog: a top-level window of its own class in which one detail of a structure is
// created or edited.
#include <windows.h>

namespace ui {

inline constexpr const wchar_t* kDetailDialogClass = L"KestrelDetailDlg";

LRESULT CALLBACK DetailDialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

}  // namespace ui
