#include "gui_harness.h"

#include <commctrl.h>
#include <winsock2.h>

#include <cstdlib>
#include <deque>
#include <filesystem>
#include <set>

#include "model/app_settings.h"
#include "png_writer.h"
#include "protocol/trace_log.h"
#include "ui/app.h"
#include "ui/control_ids.h"
#include "ui/main_window.h"

namespace gui {
namespace {

std::string workingFolder;
int appRuns = 0;

struct DialogAnswer {
    int button = IDOK;
    std::function<void(HWND)> handler;
};
std::deque<DialogAnswer> queuedAnswers;
std::vector<SeenDialog> seenDialogs;
std::set<HWND> answeredDialogs;
UINT_PTR dialogTimer = 0;

BOOL CALLBACK CollectDialog(HWND window, LPARAM lParam) {
    wchar_t className[16] = {};
    GetClassNameW(window, className, 16);
    if (std::wstring(className) == L"#32770" && IsWindowVisible(window)) {
        reinterpret_cast<std::vector<HWND>*>(lParam)->push_back(window);
    }
    return TRUE;
}

// Runs on the test's thread inside whatever modal loop is pumping (a message box's own).
void CALLBACK AnswerDialogs(HWND, UINT, UINT_PTR, DWORD) {
    std::vector<HWND> dialogs;
    EnumThreadWindows(GetCurrentThreadId(), CollectDialog, reinterpret_cast<LPARAM>(&dialogs));
    for (HWND dialog : dialogs) {
        if (answeredDialogs.count(dialog) != 0) continue;
        answeredDialogs.insert(dialog);
        SeenDialog seen{Text(dialog), Text(GetDlgItem(dialog, 0xFFFF))};
        seenDialogs.push_back(seen);
        DialogAnswer answer;
        if (!queuedAnswers.empty()) {
            answer = std::move(queuedAnswers.front());
            queuedAnswers.pop_front();
        }
        if (answer.handler) {
            answer.handler(dialog);
        } else {
            PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(answer.button, BN_CLICKED), 0);
        }
    }
}

std::string BinaryDir() {
    // The build folder as Wine sees it: the Unix root is drive Z:.
    return std::string("Z:") + KESTREL_BINARY_DIR;
}

void MakeWorkingFolder() {
    wchar_t temp[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, temp);
    std::filesystem::path folder = std::filesystem::path(temp) /
                                   ("kestrel-ui-" + std::to_string(GetCurrentProcessId()) + "-" +
                                    std::to_string(++appRuns));
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    SetCurrentDirectoryW(folder.wstring().c_str());
    workingFolder = folder.string() + "\\";
}

// What a previous window of this test process left in the process-wide objects.
void ResetProcessWideObjects() {
    if (dialogTimer == 0) dialogTimer = SetTimer(nullptr, 0, 40, AnswerDialogs);
    ui::Alarms().ClearAlarms();
    GlobalTraceLog().Clear();
    if (ui::Recording().IsRecording()) ui::Recording().ToggleRecording("");
    ui::Store().ParseStructures("");  // a program starts with an empty store
}

void CreateAndShowWindow() {
    ui::InitialiseControlsAndClasses(GetModuleHandleW(nullptr));
    ui::LoadSettingsAndLanguage();
    HWND window = ui::CreateMainWindow();
    ShowWindow(window, SW_SHOWNORMAL);
    UpdateWindow(window);
    Pump(100);
}

}  // namespace

void StartApp(int language) {
    queuedAnswers.clear();
    seenDialogs.clear();
    answeredDialogs.clear();
    ResetProcessWideObjects();
    MakeWorkingFolder();
    AppSettings stored;
    stored.language = language;
    SaveSettings(stored);
    CreateAndShowWindow();
}

void RestartApp() {
    CloseApp();
    ResetProcessWideObjects();
    CreateAndShowWindow();
}

bool CloseApp() {
    HWND window = ui::App().mainWindow;
    if (window == nullptr || !IsWindow(window)) return true;
    SendMessageW(window, WM_CLOSE, 0, 0);
    const DWORD deadline = GetTickCount() + 10000;
    MSG message;
    while (GetTickCount() < deadline) {
        while (GetTickCount() < deadline && PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            if (message.message == WM_QUIT) return true;
            TranslateMessage(&message);
            DispatchMessageW(&message);
        }
        Sleep(5);
    }
    return false;
}

HWND MainWindow() { return ui::App().mainWindow; }

std::string WorkingFolder() { return workingFolder; }

HWND Control(int id) { return GetDlgItem(MainWindow(), id); }

std::wstring Text(HWND control) {
    const int length = GetWindowTextLengthW(control);
    std::wstring text(static_cast<size_t>(length) + 1, L'\0');
    const int copied = GetWindowTextW(control, text.data(), length + 1);
    text.resize(static_cast<size_t>(copied > 0 ? copied : 0));
    return text;
}

std::wstring Text(int id) { return Text(Control(id)); }

bool IsVisible(int id) { return IsWindowVisible(Control(id)) != FALSE; }

bool IsEnabled(int id) { return IsWindowEnabled(Control(id)) != FALSE; }

bool IsChecked(int id) { return SendMessageW(Control(id), BM_GETCHECK, 0, 0) == BST_CHECKED; }

void Click(int id) {
    SendMessageW(Control(id), BM_CLICK, 0, 0);
    Pump(10);
}

void Type(int id, const std::wstring& text) {
    SetWindowTextW(Control(id), text.c_str());
    Pump(5);
}

void Select(int id, int index) {
    HWND list = Control(id);
    SendMessageW(list, CB_SETCURSEL, static_cast<WPARAM>(index), 0);
    SendMessageW(GetParent(list), WM_COMMAND, MAKEWPARAM(id, CBN_SELCHANGE), reinterpret_cast<LPARAM>(list));
    Pump(5);
}

void SelectTab(int page) {
    HWND tabs = Control(ui::id::kTabControl);
    SendMessageW(tabs, TCM_SETCURSEL, static_cast<WPARAM>(page), 0);
    NMHDR header{};
    header.hwndFrom = tabs;
    header.idFrom = ui::id::kTabControl;
    header.code = TCN_SELCHANGE;
    SendMessageW(MainWindow(), WM_NOTIFY, ui::id::kTabControl, reinterpret_cast<LPARAM>(&header));
    Pump(10);
}

void Pump(int milliseconds) {
    const DWORD deadline = GetTickCount() + static_cast<DWORD>(milliseconds);
    MSG message;
    // What is queued is handled even when that takes longer than asked for, but within a bound: a
    // poll posting lines and a timer falling due can keep the queue from ever running empty on a
    // slow machine.
    const DWORD drainLimit = deadline + 2000;
    do {
        while (GetTickCount() < drainLimit && PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            TranslateMessage(&message);
            DispatchMessageW(&message);
        }
        Sleep(2);
    } while (GetTickCount() < deadline);
}

bool PumpUntil(const std::function<bool()>& condition, int timeoutMs) {
    const DWORD deadline = GetTickCount() + static_cast<DWORD>(timeoutMs);
    while (!condition()) {
        if (GetTickCount() >= deadline) return condition();
        Pump(10);
    }
    return true;
}

void AnswerNextDialog(int button) { queuedAnswers.push_back({button, nullptr}); }

void HandleNextDialog(std::function<void(HWND dialog)> handler) { queuedAnswers.push_back({IDOK, std::move(handler)}); }

std::vector<SeenDialog> SeenDialogs() { return seenDialogs; }

void ForgetSeenDialogs() { seenDialogs.clear(); }

void StopAnsweringDialogs() {
    // KillTimer also removes a WM_TIMER of it that is already queued.
    if (dialogTimer != 0) KillTimer(nullptr, dialogTimer);
    dialogTimer = 0;
}

void StartAnsweringDialogs() {
    if (dialogTimer == 0) dialogTimer = SetTimer(nullptr, 0, 40, AnswerDialogs);
}

void Screenshot(const std::string& name) { Screenshot(name, MainWindow()); }

void Screenshot(const std::string& name, HWND window) {
    RedrawWindow(window, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_ALLCHILDREN | RDW_UPDATENOW);
    Pump(150);
    RECT rect;
    GetWindowRect(window, &rect);
    const int width = rect.right - rect.left;
    const int height = rect.bottom - rect.top;
    HDC screen = GetDC(nullptr);
    HDC memory = CreateCompatibleDC(screen);
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof(info.bmiHeader);
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = -height;  // top row first
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    void* bits = nullptr;
    HBITMAP bitmap = CreateDIBSection(memory, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
    HGDIOBJ old = SelectObject(memory, bitmap);
    BitBlt(memory, 0, 0, width, height, screen, rect.left, rect.top, SRCCOPY);
    GdiFlush();
    std::vector<uint8_t> rgb(static_cast<size_t>(width) * height * 3);
    const auto* bgra = static_cast<const uint8_t*>(bits);
    for (size_t i = 0; i < static_cast<size_t>(width) * height; ++i) {
        rgb[i * 3] = bgra[i * 4 + 2];
        rgb[i * 3 + 1] = bgra[i * 4 + 1];
        rgb[i * 3 + 2] = bgra[i * 4];
    }
    SelectObject(memory, old);
    DeleteObject(bitmap);
    DeleteDC(memory);
    ReleaseDC(nullptr, screen);
    const std::string folder = BinaryDir() + "/screenshots";
    std::filesystem::create_directories(folder);
    WritePng(folder + "/" + name + ".png", width, height, rgb);
}

COLORREF ScreenPixel(HWND window, int x, int y) {
    RedrawWindow(window, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_ALLCHILDREN | RDW_UPDATENOW);
    Pump(100);
    POINT point{x, y};
    ClientToScreen(window, &point);
    HDC screen = GetDC(nullptr);
    const COLORREF color = GetPixel(screen, point.x, point.y);
    ReleaseDC(nullptr, screen);
    return color;
}

std::wstring LogText() { return Text(ui::id::kProtocolLog); }

uint16_t FreeTcpPort() {
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
    SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    bind(s, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    int length = sizeof(address);
    getsockname(s, reinterpret_cast<sockaddr*>(&address), &length);
    closesocket(s);
    return ntohs(address.sin_port);
}

std::string ComPortA() {
    const char* name = std::getenv("KESTREL_COM_A");
    return name != nullptr ? name : "";
}

std::string ComPortB() {
    const char* name = std::getenv("KESTREL_COM_B");
    return name != nullptr ? name : "";
}

}  // namespace gui
