#include "dialog_driver.h"

#include <commctrl.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "gui_harness.h"

namespace gui {
namespace {

struct ModalScript {
    const wchar_t* windowClass = nullptr;
    std::vector<DialogStep> steps;
    size_t next = 0;
    bool inStep = false;
    DWORD finishedAt = 0;
};
ModalScript* script = nullptr;

void CALLBACK RunNextStep(HWND, UINT, UINT_PTR timer, DWORD) {
    if (script == nullptr || script->inStep) return;
    HWND dialog = FindTopLevel(script->windowClass);
    if (dialog == nullptr) return;
    if (script->next < script->steps.size()) {
        script->inStep = true;
        const size_t step = script->next++;
        script->steps[step](dialog);
        if (script != nullptr) script->inStep = false;
        return;
    }
    if (script->finishedAt == 0) script->finishedAt = GetTickCount();
    if (GetTickCount() - script->finishedAt > 20000) {
        KillTimer(nullptr, timer);
        DestroyWindow(dialog);
    }
}

BOOL CALLBACK CountWindow(HWND window, LPARAM lParam) {
    auto* found = reinterpret_cast<std::pair<const wchar_t*, std::vector<HWND>>*>(lParam);
    wchar_t className[64] = {};
    GetClassNameW(window, className, 64);
    if (std::wstring(className) == found->first && IsWindow(window)) found->second.push_back(window);
    return TRUE;
}

std::vector<HWND> TopLevels(const wchar_t* windowClass) {
    std::pair<const wchar_t*, std::vector<HWND>> found{windowClass, {}};
    EnumThreadWindows(GetCurrentThreadId(), CountWindow, reinterpret_cast<LPARAM>(&found));
    return found.second;
}

// The file name field of a common file dialog: an edit (edt1) or a combo box (cmb13) with an edit.
HWND FileNameField(HWND dialog) {
    if (HWND edit = GetDlgItem(dialog, 0x480)) return edit;
    if (HWND combo = GetDlgItem(dialog, 0x47C)) {
        if (HWND edit = FindWindowExW(combo, nullptr, L"Edit", nullptr)) return edit;
        if (HWND inner = FindWindowExW(combo, nullptr, L"ComboBox", nullptr)) {
            if (HWND edit = FindWindowExW(inner, nullptr, L"Edit", nullptr)) return edit;
        }
        return combo;
    }
    return nullptr;
}

}  // namespace

bool RunModal(const std::function<void()>& open, const wchar_t* windowClass, std::vector<DialogStep> steps) {
    ModalScript current;
    current.windowClass = windowClass;
    current.steps = std::move(steps);
    ModalScript* outer = script;
    script = &current;
    const UINT_PTR timer = SetTimer(nullptr, 0, 60, RunNextStep);
    open();
    KillTimer(nullptr, timer);
    script = outer;
    return current.next == current.steps.size();
}

HWND FindTopLevel(const wchar_t* windowClass) {
    const std::vector<HWND> windows = TopLevels(windowClass);
    return windows.empty() ? nullptr : windows.front();
}

int CountTopLevel(const wchar_t* windowClass) { return static_cast<int>(TopLevels(windowClass).size()); }

HWND Child(HWND window, int id) { return GetDlgItem(window, id); }

void ClickChild(HWND window, int id) { SendMessageW(Child(window, id), BM_CLICK, 0, 0); }

void TypeChild(HWND window, int id, const std::wstring& text) { SetWindowTextW(Child(window, id), text.c_str()); }

void SelectChild(HWND window, int id, int index) {
    HWND combo = Child(window, id);
    SendMessageW(combo, CB_SETCURSEL, static_cast<WPARAM>(index), 0);
    SendMessageW(window, WM_COMMAND, MAKEWPARAM(id, CBN_SELCHANGE), reinterpret_cast<LPARAM>(combo));
}

std::vector<std::wstring> ComboItems(HWND combo) {
    std::vector<std::wstring> items;
    const LRESULT count = SendMessageW(combo, CB_GETCOUNT, 0, 0);
    for (LRESULT i = 0; i < count; ++i) {
        std::wstring text(static_cast<size_t>(SendMessageW(combo, CB_GETLBTEXTLEN, i, 0)) + 1, L'\0');
        const LRESULT length = SendMessageW(combo, CB_GETLBTEXT, i, reinterpret_cast<LPARAM>(text.data()));
        text.resize(length > 0 ? static_cast<size_t>(length) : 0);
        items.push_back(text);
    }
    return items;
}

RECT ChildRect(HWND window, int id) {
    RECT rect{};
    GetWindowRect(Child(window, id), &rect);
    MapWindowPoints(nullptr, window, reinterpret_cast<POINT*>(&rect), 2);
    return rect;
}

void AnswerFileDialog(const std::wstring& path, std::wstring* suggested) {
    HandleNextDialog([path, suggested](HWND dialog) {
        HWND field = FileNameField(dialog);
        if (suggested != nullptr) *suggested = Text(field);
        SetWindowTextW(field, path.c_str());
        // A dialog that does not take the name is cancelled after a while, so no test hangs on it.
        SetTimer(dialog, 0x4B45, 15000, [](HWND window, UINT, UINT_PTR timer, DWORD) {
            KillTimer(window, timer);
            PostMessageW(window, WM_COMMAND, MAKEWPARAM(IDCANCEL, BN_CLICKED), 0);
        });
        // Pressed as a user would: the button's click reaches the dialog with the button as sender.
        PostMessageW(GetDlgItem(dialog, IDOK), BM_CLICK, 0, 0);
    });
}

void CancelFileDialog() { AnswerNextDialog(IDCANCEL); }

int ListRowCount(HWND list) { return static_cast<int>(SendMessageW(list, LVM_GETITEMCOUNT, 0, 0)); }

std::wstring ListCell(HWND list, int row, int column) {
    wchar_t buffer[512] = {};
    LVITEMW item{};
    item.iSubItem = column;
    item.pszText = buffer;
    item.cchTextMax = 512;
    SendMessageW(list, LVM_GETITEMTEXTW, static_cast<WPARAM>(row), reinterpret_cast<LPARAM>(&item));
    return buffer;
}

std::wstring ListColumnTitle(HWND list, int column) {
    wchar_t buffer[128] = {};
    LVCOLUMNW col{};
    col.mask = LVCF_TEXT;
    col.pszText = buffer;
    col.cchTextMax = 128;
    SendMessageW(list, LVM_GETCOLUMNW, static_cast<WPARAM>(column), reinterpret_cast<LPARAM>(&col));
    return buffer;
}

int ListColumnCount(HWND list) {
    HWND header = reinterpret_cast<HWND>(SendMessageW(list, LVM_GETHEADER, 0, 0));
    return static_cast<int>(SendMessageW(header, HDM_GETITEMCOUNT, 0, 0));
}

void SelectListRow(HWND list, int row) {
    LVITEMW item{};
    item.stateMask = LVIS_SELECTED | LVIS_FOCUSED;
    item.state = LVIS_SELECTED | LVIS_FOCUSED;
    SendMessageW(list, LVM_SETITEMSTATE, static_cast<WPARAM>(row), reinterpret_cast<LPARAM>(&item));
    Pump(10);
}

void DoubleClickListRow(HWND list, int row) {
    NMITEMACTIVATE activate{};
    activate.hdr.hwndFrom = list;
    activate.hdr.idFrom = static_cast<UINT_PTR>(GetDlgCtrlID(list));
    activate.hdr.code = NM_DBLCLK;
    activate.iItem = row;
    SendMessageW(GetParent(list), WM_NOTIFY, activate.hdr.idFrom, reinterpret_cast<LPARAM>(&activate));
}

std::wstring ArtifactFolder() {
    const std::filesystem::path folder = std::filesystem::path(std::string("Z:") + KESTREL_BINARY_DIR) / "ui-artifacts";
    std::filesystem::create_directories(folder);
    // The file dialogs take backslashes only.
    std::wstring text = folder.wstring();
    for (wchar_t& ch : text)
        if (ch == L'/') ch = L'\\';
    return text + L"\\";
}

std::string NativeArtifactFolder() { return std::string(KESTREL_BINARY_DIR) + "/ui-artifacts/"; }

std::string ReadWholeFile(const std::wstring& path) {
    std::ifstream in(std::filesystem::path(path), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteWholeFile(const std::wstring& path, const std::string& content) {
    std::ofstream out(std::filesystem::path(path), std::ios::binary | std::ios::trunc);
    out << content;
}

}  // namespace gui
