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

using FileDialog = BOOL(WINAPI*)(OPENFILENAMEW*);

// Runs one of the two common file dialogs with a 260-character name buffer, the folder kept.
std::optional<std::wstring> AskFileName(FileDialog run, HWND owner, const FileFilter& filter,
                                        const wchar_t* defaultExtension, const std::wstring& suggestedName,
                                        DWORD flags) {
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
    dialog.Flags = flags;
    KeepCurrentFolder keep;
    if (!run(&dialog)) return std::nullopt;
    return std::wstring(path);
}

}  // namespace

std::optional<std::wstring> AskSaveFileName(HWND owner, const FileFilter& filter, const wchar_t* defaultExtension,
                                            const std::wstring& suggestedName) {
    return AskFileName(GetSaveFileNameW, owner, filter, defaultExtension, suggestedName, OFN_OVERWRITEPROMPT);
}

std::optional<std::wstring> AskOpenFileName(HWND owner, const FileFilter& filter) {
    return AskFileName(GetOpenFileNameW, owner, filter, nullptr, L"", OFN_FILEMUSTEXIST);
}

int ShowMessage(HWND owner, const std::wstring& text, const std::wstring& caption, UINT style) {
    return MessageBoxW(owner, text.c_str(), caption.c_str(), style);
}

}  // namespace ui
