// The main window as a whole: its class, style and size, the titles, tabs and labels in both
// languages, page switching, the system colours, closing during a cyclic poll, and the posted
// messages' payloads.
#include <windows.h>
#include <commctrl.h>

#include <gtest/gtest.h>

#include <thread>

#include "gui_harness.h"
#include "model/app_settings.h"
#include "protocol/trace_log.h"
#include "ui/app.h"
#include "ui/control_ids.h"
#include "ui/controls.h"
#include "ui/main_window.h"
#include "ui/posted_messages.h"
#include "ui_test_support.h"

namespace {

using namespace gui;
namespace id = ui::id;

class Shell : public WindowTest {};

TEST_P(Shell, WindowHasItsClassStyleAndA790By840ClientArea) {
    wchar_t className[64] = {};
    GetClassNameW(MainWindow(), className, 64);
    EXPECT_STREQ(className, L"KestrelAppWndClass");
    const LONG style = GetWindowLongW(MainWindow(), GWL_STYLE);
    // Fixed size: caption, system menu and minimise box; no maximise box, no sizing border.
    EXPECT_EQ(style & 0x00CF0000, 0x00CA0000);
    // The outer size is that of a 790 x 840 client area of an overlapped window with a sizing
    // border; without that border the client area comes out a little larger.
    RECT expected{0, 0, 790, 840};
    AdjustWindowRect(&expected, WS_OVERLAPPEDWINDOW, FALSE);
    RECT outer{};
    GetWindowRect(MainWindow(), &outer);
    // The virtual desktop is large enough that the window is not clamped to the screen.
    EXPECT_EQ(outer.right - outer.left, expected.right - expected.left);
    EXPECT_EQ(outer.bottom - outer.top, expected.bottom - expected.top);
    RECT client{};
    GetClientRect(MainWindow(), &client);
    EXPECT_GE(client.right - client.left, 790);
    EXPECT_GE(client.bottom - client.top, 840);
    WNDCLASSEXW detail{};
    detail.cbSize = sizeof(detail);
    EXPECT_TRUE(GetClassInfoExW(GetModuleHandleW(nullptr), L"KestrelDetailDlg", &detail));
    WNDCLASSEXW settings{};
    settings.cbSize = sizeof(settings);
    EXPECT_TRUE(GetClassInfoExW(GetModuleHandleW(nullptr), L"KestrelSettingsDlg", &settings));
}

TEST_P(Shell, TitleTabsAndLabelsAreInTheChosenLanguage) {
    EXPECT_EQ(Text(MainWindow()), Lang(L"Kestrel    TCP/RTU - Master & Slave (all 16 Function Codes)",
                                       L"Kestrel    TCP/RTU - Master & Slave (alle 16 Funktionscodes)"));
    EXPECT_EQ(TabText(0), L"Register R/W");
    EXPECT_EQ(TabText(1), Lang(L"Structures", L"Strukturen"));
    EXPECT_EQ(TabText(2), Lang(L"Diagnostics", L"Diagnose"));
    EXPECT_EQ(TabText(3), Lang(L"Alarms", L"Alarme"));
    EXPECT_EQ(SendMessageW(Control(id::kTabControl), TCM_GETITEMCOUNT, 0, 0), 4);
    EXPECT_EQ(Text(id::kSettings), Lang(L"Settings", L"Einstellungen"));

    for (const wchar_t* text : {L"TCP", L"RTU", L"Master", L"Slave", L"IP:", L"Port:", L"COM:", L"Baud:", L"Slave-ID:",
                                L"FC:", L"Byteorder:", L"Scale:", L"Offset:", L"Reg 1:", L"Reg 4:"}) {
        EXPECT_TRUE(HasChildText(text)) << ui::Utf8(text);
    }
    const std::pair<const wchar_t*, const wchar_t*> translated[] = {
        {L"Connection", L"Verbindung"},
        {L"Connect", L"Verbinden"},
        {L"Disconnected", L"Getrennt"},
        {L"Write Registers (FC05/FC06/FC0F/FC10)", L"Register schreiben (FC05/FC06/FC0F/FC10)"},
        {L"Read Registers (FC01/FC02/FC03/FC04/FC17/FC18)", L"Register lesen (FC01/FC02/FC03/FC04/FC17/FC18)"},
        {L"Cyclic Polling", L"Zyklisches Polling"},
        {L"Protocol Log", L"Protokoll"},
        {L"Start Addr.:", L"Startadr.:"},
        {L"Value 1:", L"Wert 1:"},
        {L"Value 4:", L"Wert 4:"},
        {L"Write", L"Schreiben"},
        {L"Count:", L"Anz.:"},
        {L"Read", L"Lesen"},
        {L"Data Type:", L"Datentyp:"},
        {L"Decoded:", L"Dekodiert:"},
        {L"Interval (ms):", L"Intervall (ms):"},
        {L"Start", L"Starten"},
        {L"Stop", L"Stoppen"},
    };
    for (const auto& [english, german] : translated) {
        EXPECT_TRUE(HasChildText(Lang(english, german))) << ui::Utf8(Lang(english, german));
        EXPECT_FALSE(HasChildText(English() ? german : english)) << ui::Utf8(English() ? german : english);
    }
    Screenshot(Prefix() + "register");
}

TEST_P(Shell, SwitchingTabsShowsExactlyThatPagesControls) {
    const int panel[] = {id::kTcp, id::kRtu, id::kMaster, id::kSlave, id::kIpAddress, id::kPort, id::kUnitId,
                         id::kConnect, id::kConnectionStatus, id::kSettings, id::kTabControl};
    EXPECT_EQ(ui::CurrentPage(), 0);
    EXPECT_TRUE(PageControlsVisible(0));
    for (int page : {1, 2, 3, 0, 2}) {
        SelectTab(page);
        EXPECT_EQ(SendMessageW(Control(id::kTabControl), TCM_GETCURSEL, 0, 0), page);
        for (int other = 0; other < ui::kPageCount; ++other) {
            if (other == page) {
                EXPECT_TRUE(PageControlsVisible(other)) << "page " << other;
            } else {
                EXPECT_TRUE(PageControlsHidden(other)) << "page " << other << " while " << page << " is shown";
            }
        }
        for (int control : panel) EXPECT_TRUE(IsVisible(control)) << control << " on page " << page;
    }
    // No control is on two pages.
    EXPECT_FALSE(ui::App().pageControls[0].empty());
    size_t total = 0;
    for (int page = 0; page < ui::kPageCount; ++page) total += ui::App().pageControls[page].size();
    std::vector<HWND> all;
    for (const auto& list : ui::App().pageControls) all.insert(all.end(), list.begin(), list.end());
    std::sort(all.begin(), all.end());
    EXPECT_EQ(std::unique(all.begin(), all.end()) - all.begin(), static_cast<long>(total));
}

TEST_P(Shell, LabelsKeepTheSystemColoursWhateverTheTheme) {
    ASSERT_TRUE(CloseApp());
    AppSettings dark;
    dark.language = Language();
    dark.themeMode = 2;
    SaveSettings(dark);
    ui::InitialiseControlsAndClasses(GetModuleHandleW(nullptr));
    ui::LoadSettingsAndLanguage();
    HWND window = ui::CreateMainWindow();
    ShowWindow(window, SW_SHOWNORMAL);
    Pump(50);
    HDC dc = GetDC(window);
    const LRESULT brush = SendMessageW(window, WM_CTLCOLORSTATIC, reinterpret_cast<WPARAM>(dc),
                                       reinterpret_cast<LPARAM>(Control(id::kConnectionStatus)));
    EXPECT_EQ(GetBkMode(dc), TRANSPARENT);
    ReleaseDC(window, dc);
    EXPECT_EQ(reinterpret_cast<HBRUSH>(brush), GetSysColorBrush(COLOR_BTNFACE));
    EXPECT_EQ(GetClassLongPtrW(window, GCLP_HBRBACKGROUND), reinterpret_cast<LONG_PTR>(GetSysColorBrush(COLOR_BTNFACE)));
}

TEST_P(Shell, ClosingDuringACyclicPollStopsAndJoinsThePollThread) {
    TestSlave slave;
    ASSERT_TRUE(slave.Started());
    ConnectTcp(slave.Port());
    Type(id::kPollInterval, L"100");
    Click(id::kPollStart);
    ASSERT_TRUE(PumpUntil([] { return CountLogLinesStartingWith(L"[Poll] ") >= 2; }, 3000));
    ASSERT_TRUE(ui::Poller().IsRunning());
    ASSERT_TRUE(CloseApp());
    EXPECT_FALSE(ui::Poller().IsRunning());
    EXPECT_FALSE(ui::MainConnection().IsConnected());
    // Nothing polls any more: the trace log stays as it is.
    const size_t frames = GlobalTraceLog().Snapshot().size();
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    EXPECT_EQ(GlobalTraceLog().Snapshot().size(), frames);
}

TEST_P(Shell, EveryPostedPayloadIsFreedExactlyOnceByItsHandler) {
    const auto before = ui::PostedPayloadCounts();
    std::thread worker([] {
        for (int i = 0; i < 50; ++i) ui::PostLogLine("line " + std::to_string(i), "[Poll] ");
        for (int i = 0; i < 20; ++i) ui::PostSlaveWrite(static_cast<uint16_t>(i), {1, 2, 3});
        Modbus::PollingResult result;
        result.name = "Poll";
        result.ok = true;
        result.displayText = "7";
        for (int i = 0; i < 30; ++i) ui::PostPollResults(i % 2 == 0, {result});
        for (int i = 0; i < 10; ++i) {
            ui::PostAlarmChanged();
            ui::PostTraceChanged();
        }
    });
    worker.join();
    auto during = ui::PostedPayloadCounts();
    EXPECT_EQ(during.allocated - before.allocated, 100);
    Pump(200);
    const auto after = ui::PostedPayloadCounts();
    EXPECT_EQ(after.allocated - before.allocated, 100);
    EXPECT_EQ(after.freed - before.freed, 100);
    EXPECT_EQ(CountLogLinesStartingWith(L"[Poll] line "), 50);
    EXPECT_TRUE(LogHasLine(L"[Poll] line 49"));
    EXPECT_TRUE(LogHasLine(L"[Poll] 7"));
}

TEST_P(Shell, APayloadPostedAfterTheWindowIsGoneIsFreedBySender) {
    ASSERT_TRUE(CloseApp());
    const auto before = ui::PostedPayloadCounts();
    ui::PostLogLine("too late");
    ui::PostSlaveWrite(0, {1});
    ui::PostPollResults(true, {});
    const auto after = ui::PostedPayloadCounts();
    EXPECT_EQ(after.allocated - before.allocated, 3);
    EXPECT_EQ(after.freed - before.freed, 3);
}

INSTANTIATE_TEST_SUITE_P(, Shell, testing::Values(1, 0), LanguageName);

}  // namespace

namespace {

using namespace gui;

BOOL CALLBACK CollectStatic(HWND child, LPARAM lParam) {
    wchar_t className[32] = {};
    GetClassNameW(child, className, 32);
    const LONG style = GetWindowLongW(child, GWL_STYLE);
    const bool label = _wcsicmp(className, L"Static") == 0;
    const bool radioOrCheck = _wcsicmp(className, L"Button") == 0 &&
                              ((style & 0x0F) == BS_AUTORADIOBUTTON || (style & 0x0F) == BS_AUTOCHECKBOX);
    if ((label || radioOrCheck) && IsWindowVisible(child)) reinterpret_cast<std::vector<HWND>*>(lParam)->push_back(child);
    return TRUE;
}

// Labels, radio buttons and check boxes whose text is wider than the control: what a user would
// see cut off or wrapped onto a hidden second line.
std::vector<std::string> CutLabels() {
    std::vector<HWND> controls;
    EnumChildWindows(MainWindow(), CollectStatic, reinterpret_cast<LPARAM>(&controls));
    std::vector<std::string> cut;
    for (HWND control : controls) {
        const std::wstring text = Text(control);
        if (text.empty()) continue;
        HDC dc = GetDC(control);
        HGDIOBJ old = SelectObject(dc, reinterpret_cast<HFONT>(SendMessageW(control, WM_GETFONT, 0, 0)));
        SIZE size{};
        GetTextExtentPoint32W(dc, text.c_str(), static_cast<int>(text.size()), &size);
        SelectObject(dc, old);
        ReleaseDC(control, dc);
        RECT rect{};
        GetClientRect(control, &rect);
        wchar_t className[32] = {};
        GetClassNameW(control, className, 32);
        // A radio button's text starts after its circle (13 pixels and a gap).
        const int room = rect.right - (_wcsicmp(className, L"Button") == 0 ? 16 : 0);
        if (size.cx > room) {
            cut.push_back(ui::Utf8(text) + " needs " + std::to_string(size.cx) + " has " + std::to_string(room));
        }
    }
    return cut;
}

}  // namespace

TEST_P(Shell, EveryLabelShowsItsWholeText) {
    LOGFONTW font{};
    GetObjectW(ui::App().normalFont, sizeof(font), &font);
    std::printf("normal font: %s, height %ld\n", ui::Utf8(font.lfFaceName).c_str(), font.lfHeight);
    for (int page = 0; page < ui::kPageCount; ++page) {
        SelectTab(page);
        for (const std::string& label : CutLabels()) ADD_FAILURE() << "page " << page << ": " << label;
    }
}
