#include "ui/file_dialogs.h"

#include <commdlg.h>

namespace ui {
namespace {

constexpr size_t kPathBufferSize = 260;

// "Description\0pattern\0...\0\0", the layout the dialogs expect.
std::wstring FilterText(const FileFilter& filter) {
    std::wstring text;
    for (const auto& [description, pattern] : filter) {
        text += description;
        text.push_back(L'\0');
        text += pattern;
        text.push_back(L'\0');
    }
    text.push_back(L'\0');
    return text;
}

// The dialogs may leave the process in the folder the user browsed to; the structures file is
// named relative to the current folder, so it is put back.
class KeepCurrentFolder {
public:
    KeepCurrentFolder() {
        wchar_t folder[MAX_PATH] = {};
        GetCurrentDirectoryW(MAX_PATH, folder);
        folder_ = folder;
    }
    ~KeepCurrentFolder() { SetCurrentDirectoryW(folder_.c_str()); }

private:
    std::wstring folder_;
};

}  // namespace

std::optional<std::wstring> AskSaveFileName(HWND owner, const FileFilter& filter, const wchar_t* defaultExtension,
                                            const std::wstring& suggestedName) {
    const std::wstring filterText = FilterText(filter);
    wchar_t path[kPathBufferSize] = {};
    suggestedName.copy(path, kPathBufferSize - 1);
    OPENFILENAMEW dialog{};
    dialog.lStructSize = sizeof(dialog);
    dialog.hwndOwner = owner;
    dialog.lpstrFilter = filterText.c_str();
    dialog.lpstrFile = path;
    dialog.nMaxFile = kPathBufferSize;
    dialog.lpstrDefExt = defaultExtension;
    dialog.Flags = OFN_OVERWRITEPROMPT;
    KeepCurrentFolder keep;
    if (!GetSaveFileNameW(&dialog)) return std::nullopt;
    return std::wstring(path);
}

std::optional<std::wstring> AskOpenFileName(HWND owner, const FileFilter& filter) {
    const std::wstring filterText = FilterText(filter);
    wchar_t path[kPathBufferSize] = {};
    OPENFILENAMEW dialog{};
    dialog.lStructSize = sizeof(dialog);
    dialog.hwndOwner = owner;
    dialog.lpstrFilter = filterText.c_str();
    dialog.lpstrFile = path;
    dialog.nMaxFile = kPathBufferSize;
    dialog.Flags = OFN_FILEMUSTEXIST;
    KeepCurrentFolder keep;
    if (!GetOpenFileNameW(&dialog)) return std::nullopt;
    return std::wstring(path);
}

int ShowMessage(HWND owner, const std::wstring& text, const std::wstring& caption, UINT style) {
    return MessageBoxW(owner, text.c_str(), caption.c_str(), style);
}

}  // namespace ui
