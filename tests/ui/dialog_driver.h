#pragma once
// Driving the program's own modal windows (the detail and settings dialogs, which run a message
// loop of their own) and the common file dialogs from a test, and reading list views.
#include <windows.h>

#include <functional>
#include <string>
#include <vector>

namespace gui {

using DialogStep = std::function<void(HWND dialog)>;

// Calls `open` (which shows a modal window of `windowClass` and returns when it is closed) and runs
// the steps one after another inside that window's own message loop, each given the window, with
// the loop running in between (so posted keys and clicks are handled). A step that itself opens a
// modal box holds the later steps back until it returns. When the window is still open 20 s after
// the last step, it is destroyed, so a failing test never hangs. Returns whether every step ran.
bool RunModal(const std::function<void()>& open, const wchar_t* windowClass, std::vector<DialogStep> steps);
// The one top-level window of this class in the process, or nullptr.
HWND FindTopLevel(const wchar_t* windowClass);
int CountTopLevel(const wchar_t* windowClass);

// A child of a window by id, its text, a click on it (BM_CLICK), typing into it, choosing a list
// item (with the CBN_SELCHANGE its parent would get).
HWND Child(HWND window, int id);
void ClickChild(HWND window, int id);
void TypeChild(HWND window, int id, const std::wstring& text);
void SelectChild(HWND window, int id, int index);
std::vector<std::wstring> ComboItems(HWND combo);
// A control's rectangle in the client coordinates of its parent.
RECT ChildRect(HWND window, int id);

// The next common file dialog gets this path typed into its file name field and is confirmed;
// `suggested` (if given) receives the name the dialog offered.
void AnswerFileDialog(const std::wstring& path, std::wstring* suggested = nullptr);
// The next common file dialog is cancelled.
void CancelFileDialog();

// List views.
int ListRowCount(HWND list);
std::wstring ListCell(HWND list, int row, int column);
std::wstring ListColumnTitle(HWND list, int column);
int ListColumnCount(HWND list);
// Selects a row as a click would (the parent gets LVN_ITEMCHANGED).
void SelectListRow(HWND list, int row);
// What a double click on a row sends to the parent.
void DoubleClickListRow(HWND list, int row);

// A folder for the files a test writes, inside the build folder (as Wine sees it, with a
// backslash at the end), and the same folder as the native side sees it.
std::wstring ArtifactFolder();
std::string NativeArtifactFolder();
std::string ReadWholeFile(const std::wstring& path);
void WriteWholeFile(const std::wstring& path, const std::string& content);

}  // namespace gui
