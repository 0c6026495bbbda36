#include "ui/main_window.h"

#include <commctrl.h>
#include <uxtheme.h>

#include <string>

#include "common/localizer.h"
#include "protocol/trace_log.h"
#include "ui/alarms_page.h"
#include "ui/app.h"
#include "ui/connection_panel.h"
#include "ui/control_ids.h"
#include "ui/controls.h"
#include "ui/detail_dialog.h"
#include "ui/diagnostics_page.h"
#include "ui/dpi_scaling.h"
#include "ui/posted_messages.h"
#include "ui/register_page.h"
#include "ui/settings_dialog.h"
#include "ui/structures_page.h"

namespace ui {
namespace {

constexpr DWORD kSizingStyle = WS_OVERLAPPEDWINDOW;  // what the client size is computed for
// Fixed size: no maximise box, no sizing border.
constexpr DWORD kMainWindowStyle = WS_OVERLAPPED | WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX;
constexpr int kClientWidth = 790;
constexpr int kClientHeight = 840;

void RegisterClass(HINSTANCE instance, const wchar_t* name, WNDPROC procedure, UINT style, HICON icon) {
    WNDCLASSEXW wc{};
    wc.cbSize = sizeof(wc);
    wc.style = style;
    wc.lpfnWndProc = procedure;
    wc.hInstance = instance;
    wc.hIcon = icon;
    wc.hIconSm = icon;
    wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    wc.hbrBackground = GetSysColorBrush(COLOR_BTNFACE);
    wc.lpszClassName = name;
    RegisterClassExW(&wc);
}

// The main window's fonts at its DPI (the fonts themselves are kept per DPI, see dpi_scaling.h).
void UseFontsForDpi(int dpi) {
    const InterfaceFonts fonts = FontsForDpi(dpi);
    App().dpi = dpi;
    App().normalFont = fonts.normal;
    App().boldFont = fonts.bold;
}

void CreateTabs(HWND window) {
    ControlFactory shell(window, nullptr, true);
    HWND tabs = shell.Tabs(id::kTabControl, 10, 155, 770, 660, TCS_HOTTRACK);
    // The pages are drawn over the tab control's body; a themed body would be lighter than the
    // button face the labels are painted with, so the tab control draws itself classically while
    // every other control is themed. Empty names are the documented way; Wine refuses them and
    // keeps the theme, so the fallback names a theme class that does not exist.
    if (FAILED(SetWindowTheme(tabs, L"", L"")) || GetWindowTheme(tabs) != nullptr) SetWindowTheme(tabs, L" ", L" ");
    const std::wstring titles[kPageCount] = {L"Register R/W", T("Structures", "Strukturen"), T("Diagnostics", "Diagnose"),
                                             T("Alarms", "Alarme")};
    for (int i = 0; i < kPageCount; ++i) {
        TCITEMW item{};
        item.mask = TCIF_TEXT;
        item.pszText = const_cast<wchar_t*>(titles[i].c_str());
        SendMessageW(tabs, TCM_INSERTITEMW, static_cast<WPARAM>(i), reinterpret_cast<LPARAM>(&item));
    }
    App().tabControl = tabs;
}

// The outer size of the main window for a client area of the design's size scaled to `dpi`.
SIZE MainWindowSize(int dpi) {
    RECT frame{0, 0, ScaleToDpi(kClientWidth, dpi), ScaleToDpi(kClientHeight, dpi)};
    AdjustWindowRect(&frame, kSizingStyle, FALSE);
    return {frame.right - frame.left, frame.bottom - frame.top};
}

// Workers reach the window only through these: each posts and returns.
void InstallCallbacks() {
    MainConnection().SetLogCallback([](const std::string& line) { PostLogLine(line); });
    MainConnection().SetRegisterChangedCallback(
        [](uint16_t start, const std::vector<uint16_t>& values) { PostSlaveWrite(start, values); });
    SetTraceCallback([](const Modbus::TraceFrame&) { PostTraceChanged(); });
    Alarms().SetAlarmCallback([](const Modbus::AlarmEvent&) { PostAlarmChanged(); });
}

void OnTabChanged() {
    const int page = static_cast<int>(SendMessageW(App().tabControl, TCM_GETCURSEL, 0, 0));
    SwitchPage(page);
    if (page == kDiagnosticsPage) diagnostics_page::Refresh();
    if (page == kAlarmsPage) alarms_page::Refresh();
}

LRESULT OnNotify(const NMHDR& header) {
    if (header.hwndFrom == App().tabControl && header.code == TCN_SELCHANGE) {
        OnTabChanged();
    } else if (header.hwndFrom != nullptr && header.hwndFrom == structures_page::StructureList() &&
               header.code == LVN_ITEMCHANGED) {
        const auto& change = reinterpret_cast<const NMLISTVIEW&>(header);
        if ((change.uNewState & LVIS_SELECTED) != 0) {
            LVITEMW item{};
            item.mask = LVIF_PARAM;
            item.iItem = change.iItem;
            SendMessageW(header.hwndFrom, LVM_GETITEMW, 0, reinterpret_cast<LPARAM>(&item));
            structures_page::OnStructureSelected(static_cast<int32_t>(item.lParam));
        }
    } else if (header.hwndFrom != nullptr && header.hwndFrom == structures_page::DetailList() &&
               header.code == NM_DBLCLK) {
        const auto& activate = reinterpret_cast<const NMITEMACTIVATE&>(header);
        if (activate.iItem >= 0 && App().selectedStructureId != 0) structures_page::OnDetailDoubleClick(activate.iItem);
    }
    return 0;
}

// WM_COMMAND by the low word of wParam; false for an id no handler takes.
bool OnCommand(int command) {
    switch (command) {
        case id::kTcp:
        case id::kRtu: connection_panel::ShowTransportFields(); return true;
        case id::kConnect: connection_panel::OnConnectButton(); return true;
        case id::kWrite: register_page::OnWrite(); return true;
        case id::kRead: register_page::OnRead(); return true;
        case id::kPollStart: register_page::OnPollStart(); return true;
        case id::kPollStop: register_page::OnPollStop(); return true;
        case id::kSettings: ShowSettingsDialog(App().mainWindow); return true;
        default: break;
    }
    if (command >= id::kStructureList && command <= id::kJsonExport) return structures_page::OnCommand(command);
    if (command >= id::kFrameList && command <= id::kExportPcap) return diagnostics_page::OnCommand(command);
    if (command >= id::kAlarmList && command <= id::kClearAlarms) return alarms_page::OnCommand(command);
    return false;
}

void OnLogLine(LPARAM lParam) {
    if (const auto line = TakeLogLine(lParam)) register_page::AppendPostedLine(*line);
}

void OnSlaveWrite(LPARAM lParam) {
    if (const auto write = TakeSlaveWrite(lParam)) register_page::OnSlaveWrite(*write);
}

void OnPollResults(WPARAM wParam, LPARAM lParam) {
    const auto results = TakePollResults(lParam);
    if (!results) return;
    if (wParam == 1 && !results->empty()) {
        register_page::OnPollResults(*results);
    } else {
        structures_page::ShowLiveValues(*results);
    }
}

// Alarm and trace messages carry nothing: the page reads the engine or the trace log as they are
// now, so the same messages still queued behind this one would show nothing new and are dropped.
void DropQueued(UINT message) {
    MSG queued;
    for (int i = 0; i < 10000 && PeekMessageW(&queued, App().mainWindow, message, message, PM_REMOVE | PM_NOYIELD); ++i) {
    }
}

void OnAlarm() {
    DropQueued(WM_APP_ALARM);
    if (CurrentPage() == kAlarmsPage) alarms_page::Refresh();
    alarms_page::RefreshCounter();
}

void OnTrace() {
    DropQueued(WM_APP_TRACE);
    // Frames arriving while another page is shown cost nothing here.
    if (CurrentPage() == kDiagnosticsPage) diagnostics_page::Refresh();
}

void ShutDown() {
    PollingEngine& engine = Poller();
    engine.Stop();  // clears `running` by exchange and joins the thread
    StructurePollingConnection().Disconnect();
    {
        std::lock_guard<std::mutex> wire(MainWireMutex());
        MainConnection().Disconnect();  // also stops and joins a slave server
    }
    // Nothing posts any more; what is still queued (such as the line of that disconnect) is freed.
    FreeQueuedPayloads(App().mainWindow);
    ForgetPlaces(App().mainWindow);
    App().normalFont = nullptr;
    App().boldFont = nullptr;
    FreeFontsOfAllDpis();
    DeleteNarrowFonts();
    PostQuitMessage(0);
}

}  // namespace

void InitialiseControlsAndClasses(HINSTANCE instance) {
    App().instance = instance;
    INITCOMMONCONTROLSEX controls{};
    controls.dwSize = sizeof(controls);
    controls.dwICC = ICC_WIN95_CLASSES | ICC_STANDARD_CLASSES;
    InitCommonControlsEx(&controls);
    HICON icon = LoadIconW(nullptr, IDI_APPLICATION);
    RegisterClass(instance, kMainWindowClass, WndProc, CS_HREDRAW | CS_VREDRAW, icon);
    RegisterClass(instance, kDetailDialogClass, DetailDialogProc, 0, nullptr);
    RegisterClass(instance, kSettingsDialogClass, SettingsDialogProc, 0, nullptr);
}

void LoadSettingsAndLanguage() {
    LoadSettings(Settings());
    App().language = Settings().language;
    ApplyLanguageFlags(Settings());
}

HWND CreateMainWindow() {
    // Sized for the system DPI; a window that comes up on a screen of another DPI is sized again.
    const int systemDpi = SystemDpi();
    const SIZE size = MainWindowSize(systemDpi);
    const std::wstring title = T("Kestrel    TCP/RTU - Master & Slave (all 16 Function Codes)",
                                 "Kestrel    TCP/RTU - Master & Slave (alle 16 Funktionscodes)");
    HWND window = CreateWindowExW(0, kMainWindowClass, title.c_str(), kMainWindowStyle, CW_USEDEFAULT, CW_USEDEFAULT,
                                  size.cx, size.cy, nullptr, nullptr, App().instance, nullptr);
    if (window != nullptr && App().dpi != systemDpi) {
        const SIZE own = MainWindowSize(App().dpi);
        SetWindowPos(window, nullptr, 0, 0, own.cx, own.cy, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    }
    return window;
}

void OnDpiChanged(HWND window, WPARAM wParam, LPARAM lParam) {
    const int dpi = HIWORD(wParam);
    if (window == App().mainWindow) UseFontsForDpi(dpi);
    LayOutForDpi(window, dpi);
    const RECT& suggested = *reinterpret_cast<const RECT*>(lParam);
    SetWindowPos(window, nullptr, suggested.left, suggested.top, suggested.right - suggested.left,
                 suggested.bottom - suggested.top, SWP_NOZORDER | SWP_NOACTIVATE);
}

int RunMessageLoop() {
    MSG message;
    // An error return (-1) is taken like a message; only WM_QUIT (0) ends the loop.
    while (GetMessageW(&message, nullptr, 0, 0) != 0) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    return static_cast<int>(message.wParam);
}

int RunApplication(HINSTANCE instance, int showCommand) {
    InitialiseControlsAndClasses(instance);
    LoadSettingsAndLanguage();
    HWND window = CreateMainWindow();
    ShowWindow(window, showCommand);
    UpdateWindow(window);
    return RunMessageLoop();
}

void CreateUI(HWND window) {
    AppState& app = App();
    app.mainWindow = window;
    for (auto& page : app.pageControls) page.clear();
    app.selectedStructureId = 0;
    ForgetPlaces(window);
    UseFontsForDpi(WindowDpi(window));

    connection_panel::Build(window);
    ControlFactory shell(window, nullptr, true);
    shell.Button(id::kSettings, T("Settings", "Einstellungen"), 630, 20, 110, 25);
    CreateTabs(window);

    register_page::Build(window, app.pageControls[kRegisterPage]);
    structures_page::Build(window, app.pageControls[kStructuresPage], 770, 632);
    diagnostics_page::Build(window, app.pageControls[kDiagnosticsPage]);
    alarms_page::Build(window, app.pageControls[kAlarmsPage]);
    SwitchPage(kRegisterPage);

    InstallCallbacks();
    structures_page::LoadStructures();
}

void SwitchPage(int page) {
    AppState& app = App();
    SendMessageW(app.tabControl, TCM_SETCURSEL, static_cast<WPARAM>(page), 0);
    for (int i = 0; i < kPageCount; ++i) {
        for (HWND control : app.pageControls[i]) ShowWindow(control, i == page ? SW_SHOW : SW_HIDE);
    }
}

int CurrentPage() { return static_cast<int>(SendMessageW(App().tabControl, TCM_GETCURSEL, 0, 0)); }

LRESULT CALLBACK WndProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case WM_CREATE: CreateUI(window); return 0;
        case WM_DESTROY: ShutDown(); return 0;
        case WM_DPICHANGED: OnDpiChanged(window, wParam, lParam); return 0;
        case WM_NOTIFY: return OnNotify(*reinterpret_cast<const NMHDR*>(lParam));
        case WM_COMMAND:
            if (OnCommand(LOWORD(wParam))) return 0;
            break;
        case WM_CTLCOLORSTATIC:
            // Labels, radio buttons and group boxes blend with the window background.
            SetBkMode(reinterpret_cast<HDC>(wParam), TRANSPARENT);
            return reinterpret_cast<LRESULT>(GetSysColorBrush(COLOR_BTNFACE));
        case WM_APP_LOG: OnLogLine(lParam); return 0;
        case WM_APP_SLAVE_WRITE: OnSlaveWrite(lParam); return 0;
        case WM_APP_POLL_RESULTS: OnPollResults(wParam, lParam); return 0;
        case WM_APP_ALARM: OnAlarm(); return 0;
        case WM_APP_TRACE: OnTrace(); return 0;
        default: break;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

}  // namespace ui
