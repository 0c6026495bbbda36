#pragma once
// The common Save and Open dialogs as the pages use them: a filter of description/pattern pairs,
// a default extension, a 260-character path buffer that starts with a suggested file name.
#include <windows.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ui {

using FileFilter = std::vector<std::pair<std::wstring, std::wstring>>;  // description, pattern

// The chosen path, or nothing when the user cancelled. Save asks before overwriting a file.
std::optional<std::wstring> AskSaveFileName(HWND owner, const FileFilter& filter, const wchar_t* defaultExtension,
                                            const std::wstring& suggestedName);
// Open accepts only a file that exists.
std::optional<std::wstring> AskOpenFileName(HWND owner, const FileFilter& filter);

// Shows a message box owned by `owner` and returns the button pressed.
int ShowMessage(HWND owner, const std::wstring& text, const std::wstring& caption, UINT style);

}  // namespace ui
