// The window on a screen of another DPI. Every control sits at its design position scaled by
// dpi / 96, the client areas are scaled, the fonts are the larger ones of that DPI; at 96 DPI
// nothing moved.
//
// HighDpi: the prefix's DPI is 144 (tools/wine-gui-run.sh with KESTREL_GUI_DPI=144, a 1920 x 1600
// screen): the window comes up scaled. The tests skip themselves at any other DPI.
// DpiRelayout: at 96 DPI, the window (and each dialog) gets the WM_DPICHANGED Windows sends when it
// is moved to a 144 DPI screen, then the one for going back: every control moves to its scaled
// place and back to exactly where it was.
#include <windows.h>
#include <commctrl.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <vector>

#include "dialog_driver.h"
#include "gui_harness.h"
#include "ui/app.h"
#include "ui/control_ids.h"
#include "ui/detail_dialog.h"
#include "ui/dpi_scaling.h"
#include "ui_test_support.h"

namespace {

using namespace gui;
namespace id = ui::id;

constexpr const wchar_t* kSettingsClass = L"KestrelSettingsDlg";
constexpr const wchar_t* kDetailClass = L"KestrelDetailDlg";

// A control and its design rectangle (x, y, width, height at 96 DPI). A combo box's window is as
// high as its closed field, whatever height it was given (that is the height of its list): only
// its left, top and right edges are compared.
struct Sample {
    int id;
    int x, y, w, h;
    bool combo = false;
};

// Per page of the main window (the connection panel and the tab control are on every page).
const std::vector<Sample> kShellSamples = {
    {id::kIpAddress, 42, 58, 120, 22}, {id::kConnect, 620, 50, 120, 52}, {id::kSettings, 630, 20, 110, 25},
    {id::kTabControl, 10, 155, 770, 660}, {id::kConnectionStatus, 15, 101, 720, 18}};
const std::vector<Sample> kPageSamples[ui::kPageCount] = {
    {{id::kWriteFunction, 45, 205, 175, 200, true},
     {id::kWrite, 690, 231, 80, 26},
     {id::kReadAddress, 290, 325, 55, 22},
     {id::kPollInterval, 115, 462, 65, 22},
     {id::kProtocolLog, 20, 515, 750, 288}},
    {{id::kStructureList, 20, 201, 682, 140},
     {id::kStructureName, 80, 378, 190, 22},
     {id::kStructureSave, 598, 406, 80, 26},
     {id::kStructurePollStart, 190, 638, 80, 26},
     {id::kLiveValues, 20, 691, 750, 112}},
    {{id::kStatistics, 20, 183, 750, 20}, {id::kFrameList, 20, 208, 750, 567}, {id::kExportPcap, 130, 780, 130, 26}},
    {{id::kAlarmCounter, 20, 183, 220, 20}, {id::kAlarmList, 20, 208, 750, 567}, {id::kClearAlarms, 280, 780, 110, 26}},
};
const std::vector<Sample> kSettingsSamples = {{id::kThemeLight, 108, 28, 62, 20},
                                              {id::kLanguage, 90, 80, 150, 200, true},
                                              {id::kMqttEnabled, 20, 192, 120, 20},
                                              {id::kMqttBroker, 74, 220, 268, 22},
                                              {id::kMqttPassword, 82, 360, 260, 22},
                                              {id::kSettingsOk, 135, 465, 88, 26},
                                              {id::kSettingsCancel, 249, 465, 88, 26}};
const std::vector<Sample> kDetailSamples = {{id::kDetailName, 107, 12, 295, 22},
                                            {id::kDetailDataType, 107, 42, 200, 200, true},
                                            {id::kDetailScale, 58, 192, 80, 22},
                                            {id::kDetailWarnLow, 83, 290, 75, 22},
                                            {id::kDetailAlarmOnChange, 12, 350, 260, 20},
                                            {id::kDetailSave, 118, 390, 88, 26}};

int Scaled(int design, int dpi) { return MulDiv(design, dpi, 96); }

std::string Describe(const RECT& r) {
    return std::to_string(r.left) + "," + std::to_string(r.top) + " - " + std::to_string(r.right) + "," +
           std::to_string(r.bottom);
}

// The control's rectangle in its parent's client coordinates against the sample scaled to `dpi`.
void ExpectAtScaledPlace(HWND parent, const Sample& s, int dpi) {
    HWND control = GetDlgItem(parent, s.id);
    ASSERT_NE(control, nullptr) << "control " << s.id;
    RECT r{};
    GetWindowRect(control, &r);
    MapWindowPoints(nullptr, parent, reinterpret_cast<POINT*>(&r), 2);
    const RECT expected{Scaled(s.x, dpi), Scaled(s.y, dpi), Scaled(s.x + s.w, dpi), Scaled(s.y + s.h, dpi)};
    const std::string where = "control " + std::to_string(s.id) + " at " + Describe(r) + ", expected " +
                              Describe(expected);
    EXPECT_EQ(r.left, expected.left) << where;
    EXPECT_EQ(r.top, expected.top) << where;
    EXPECT_EQ(r.right, expected.right) << where;
    if (!s.combo) {
        EXPECT_EQ(r.bottom, expected.bottom) << where;
    }
}

LONG FontHeight(HWND control) {
    LOGFONTW font{};
    GetObjectW(reinterpret_cast<HFONT>(SendMessageW(control, WM_GETFONT, 0, 0)), sizeof(font), &font);
    return std::labs(font.lfHeight);
}

LONG FontWeight(HWND control) {
    LOGFONTW font{};
    GetObjectW(reinterpret_cast<HFONT>(SendMessageW(control, WM_GETFONT, 0, 0)), sizeof(font), &font);
    return font.lfWeight;
}

// The message font the system gives at its own DPI: the fonts of a window at the system DPI.
LONG SystemMessageFontHeight() {
    NONCLIENTMETRICSW metrics{};
    metrics.cbSize = 504;
    SystemParametersInfoW(SPI_GETNONCLIENTMETRICS, metrics.cbSize, &metrics, 0);
    return std::labs(metrics.lfMessageFont.lfHeight);
}

SIZE ClientSize(HWND window) {
    RECT client{};
    GetClientRect(window, &client);
    return {client.right, client.bottom};
}

// Every child of a window with its rectangle and font height, to compare before and after.
struct ChildState {
    RECT rect;
    LONG fontHeight;
};
std::map<HWND, ChildState> ChildStates(HWND window) {
    std::map<HWND, ChildState> states;
    for (HWND child = GetWindow(window, GW_CHILD); child != nullptr; child = GetWindow(child, GW_HWNDNEXT)) {
        RECT r{};
        GetWindowRect(child, &r);
        MapWindowPoints(nullptr, window, reinterpret_cast<POINT*>(&r), 2);
        states[child] = {r, FontHeight(child)};
    }
    return states;
}

void ExpectSameStates(const std::map<HWND, ChildState>& before, const std::map<HWND, ChildState>& after) {
    ASSERT_EQ(before.size(), after.size());
    for (const auto& [child, state] : before) {
        const auto found = after.find(child);
        ASSERT_NE(found, after.end());
        EXPECT_TRUE(EqualRect(&state.rect, &found->second.rect))
            << "control " << GetDlgCtrlID(child) << " was at " << Describe(state.rect) << ", now at "
            << Describe(found->second.rect);
        EXPECT_EQ(state.fontHeight, found->second.fontHeight) << "control " << GetDlgCtrlID(child);
    }
}

// What Windows sends when the window is moved onto a screen of `dpi`: the DPI in both halves of
// wParam and the suggested window rectangle.
void SendDpiChanged(HWND window, int dpi, RECT suggested) {
    SendMessageW(window, WM_DPICHANGED, MAKEWPARAM(dpi, dpi), reinterpret_cast<LPARAM>(&suggested));
}

RECT OuterRect(HWND window) {
    RECT r{};
    GetWindowRect(window, &r);
    return r;
}

// --- At 144 DPI -------------------------------------------------------------------------------

class HighDpi : public WindowTest {
protected:
    void SetUp() override {
        // Run by the 144 DPI runner, the prefix must be at 144 DPI; elsewhere the tests skip.
        const char* wanted = std::getenv("KESTREL_GUI_DPI");
        if (wanted != nullptr && std::atoi(wanted) == 144) {
            ASSERT_EQ(ui::SystemDpi(), 144) << "the prefix is not at 144 DPI";
        } else if (ui::SystemDpi() != 144) {
            GTEST_SKIP() << "needs a 144 DPI prefix (KESTREL_GUI_DPI=144)";
        }
        WindowTest::SetUp();
    }
    void TearDown() override {
        if (ui::SystemDpi() == 144) WindowTest::TearDown();
    }
};

TEST_P(HighDpi, MainWindowHasA1185By1260ClientAreaAndItsFonts) {
    EXPECT_EQ(ui::WindowDpi(MainWindow()), 144);
    // The outer size comes from the same computation as at 96 DPI, fed with 1.5 x 790 x 840.
    RECT expected{0, 0, 1185, 1260};
    AdjustWindowRect(&expected, WS_OVERLAPPEDWINDOW, FALSE);
    const RECT outer = OuterRect(MainWindow());
    EXPECT_EQ(outer.right - outer.left, expected.right - expected.left);
    EXPECT_EQ(outer.bottom - outer.top, expected.bottom - expected.top);
    const SIZE client = ClientSize(MainWindow());
    EXPECT_GE(client.cx, 1185);
    EXPECT_GE(client.cy, 1260);
    std::printf("client area at 144 DPI: %ld x %ld, outer %ld x %ld\n", client.cx, client.cy, outer.right - outer.left,
                outer.bottom - outer.top);
    // The fonts are the system's at 144 DPI: larger than the 11-pixel font of 96 DPI.
    const LONG height = FontHeight(Control(id::kIpAddress));
    std::printf("font height at 144 DPI: %ld\n", height);
    EXPECT_EQ(height, SystemMessageFontHeight());
    EXPECT_GE(height, 16);
    EXPECT_EQ(FontHeight(Control(id::kConnect)), height);
    EXPECT_EQ(FontWeight(Control(id::kConnect)), FW_BOLD);
}

TEST_P(HighDpi, EveryPageHasItsControlsAtOneAndAHalfTimesTheirDesignPlaces) {
    for (const Sample& s : kShellSamples) ExpectAtScaledPlace(MainWindow(), s, 144);
    for (int page = 0; page < ui::kPageCount; ++page) {
        SelectTab(page);
        for (const Sample& s : kPageSamples[page]) ExpectAtScaledPlace(MainWindow(), s, 144);
        Screenshot(Prefix() + "144dpi-page" + std::to_string(page));
    }
    // List view columns are scaled too: the structure list's first column is 250 at 96 DPI.
    EXPECT_EQ(SendMessageW(Control(id::kStructureList), LVM_GETCOLUMNWIDTH, 0, 0), 375);
}

TEST_P(HighDpi, SettingsDialogIsScaled) {
    const bool ran = RunModal([] { Click(id::kSettings); }, kSettingsClass, {[&](HWND d) {
                                  const SIZE client = ClientSize(d);
                                  EXPECT_EQ(client.cx, 705);
                                  EXPECT_EQ(client.cy, 750);
                                  for (const Sample& s : kSettingsSamples) ExpectAtScaledPlace(d, s, 144);
                                  EXPECT_EQ(FontHeight(GetDlgItem(d, id::kMqttBroker)), SystemMessageFontHeight());
                                  Screenshot(Prefix() + "144dpi-settings-dialog", d);
                                  ClickChild(d, id::kSettingsCancel);
                              }});
    EXPECT_TRUE(ran);
}

TEST_P(HighDpi, DetailDialogIsScaled) {
    Modbus::ModbusDetail detail;
    detail.name = "Pressure";
    const bool ran = RunModal([&] { ui::ShowDetailDialog(MainWindow(), detail, true); }, kDetailClass, {[&](HWND d) {
                                  const SIZE client = ClientSize(d);
                                  EXPECT_EQ(client.cx, 630);
                                  EXPECT_EQ(client.cy, 639);
                                  for (const Sample& s : kDetailSamples) ExpectAtScaledPlace(d, s, 144);
                                  EXPECT_EQ(FontHeight(GetDlgItem(d, id::kDetailName)), SystemMessageFontHeight());
                                  Screenshot(Prefix() + "144dpi-detail-dialog", d);
                                  ClickChild(d, id::kDetailCancel);
                              }});
    EXPECT_TRUE(ran);
}

INSTANTIATE_TEST_SUITE_P(, HighDpi, testing::Values(1, 0), LanguageName);

// --- Moved to a 144 DPI screen and back, at 96 DPI ------------------------------------------

class DpiRelayout : public WindowTest {
protected:
    void SetUp() override {
        if (ui::SystemDpi() != 96) GTEST_SKIP() << "needs a 96 DPI prefix";
        WindowTest::SetUp();
    }
    void TearDown() override {
        if (ui::SystemDpi() == 96) WindowTest::TearDown();
    }
};

TEST_P(DpiRelayout, MainWindowMovesEveryControlToItsScaledPlaceAndBack) {
    SelectTab(ui::kRegisterPage);
    const auto before = ChildStates(MainWindow());
    const RECT original = OuterRect(MainWindow());
    const LONG normalHeight = FontHeight(Control(id::kIpAddress));

    // Windows suggests a rectangle of the same place, 1.5 x as large (the test takes a smaller one
    // than the 1.5 x window, which would not fit this 1280 x 1024 screen: the window takes what it
    // is given).
    const RECT suggested{20, 10, 20 + 1100, 10 + 980};
    SendDpiChanged(MainWindow(), 144, suggested);
    Pump(50);
    const RECT moved = OuterRect(MainWindow());
    EXPECT_TRUE(EqualRect(&moved, &suggested)) << Describe(moved);
    for (const Sample& s : kShellSamples) ExpectAtScaledPlace(MainWindow(), s, 144);
    for (int page = 0; page < ui::kPageCount; ++page) {
        SelectTab(page);
        for (const Sample& s : kPageSamples[page]) ExpectAtScaledPlace(MainWindow(), s, 144);
    }
    // The fonts of 144 DPI: 1.5 x as high; bold stays bold.
    EXPECT_EQ(FontHeight(Control(id::kIpAddress)), MulDiv(normalHeight, 144, 96));
    EXPECT_EQ(FontHeight(Control(id::kConnect)), MulDiv(normalHeight, 144, 96));
    EXPECT_EQ(FontWeight(Control(id::kConnect)), FW_BOLD);
    EXPECT_EQ(FontHeight(Control(id::kTabControl)), MulDiv(normalHeight, 144, 96));
    EXPECT_EQ(SendMessageW(Control(id::kFrameList), LVM_GETCOLUMNWIDTH, 3, 0), MulDiv(175, 144, 96));

    // Back on a 96 DPI screen: every control exactly where it was, with the fonts it had.
    SelectTab(ui::kRegisterPage);
    SendDpiChanged(MainWindow(), 96, original);
    Pump(50);
    ExpectSameStates(before, ChildStates(MainWindow()));
    const RECT back = OuterRect(MainWindow());
    EXPECT_TRUE(EqualRect(&back, &original)) << Describe(back);
    EXPECT_EQ(SendMessageW(Control(id::kFrameList), LVM_GETCOLUMNWIDTH, 3, 0), 175);
}

TEST_P(DpiRelayout, SettingsDialogMovesItsControlsToTheirScaledPlacesAndBack) {
    const bool ran = RunModal([] { Click(id::kSettings); }, kSettingsClass, {[&](HWND d) {
                                  const auto before = ChildStates(d);
                                  const RECT original = OuterRect(d);
                                  const LONG height = FontHeight(GetDlgItem(d, id::kMqttBroker));
                                  SendDpiChanged(d, 144, {original.left, original.top, original.left + 720,
                                                          original.top + 790});
                                  for (const Sample& s : kSettingsSamples) ExpectAtScaledPlace(d, s, 144);
                                  EXPECT_EQ(FontHeight(GetDlgItem(d, id::kMqttBroker)), MulDiv(height, 144, 96));
                                  EXPECT_EQ(ClientSize(d).cx, 720 - (original.right - original.left - 470));
                                  SendDpiChanged(d, 96, original);
                                  ExpectSameStates(before, ChildStates(d));
                                  EXPECT_EQ(ClientSize(d).cx, 470);
                                  EXPECT_EQ(ClientSize(d).cy, 500);
                                  ClickChild(d, id::kSettingsCancel);
                              }});
    EXPECT_TRUE(ran);
}

TEST_P(DpiRelayout, DetailDialogMovesItsControlsToTheirScaledPlacesAndBack) {
    Modbus::ModbusDetail detail;
    detail.name = "Pressure";
    const bool ran = RunModal([&] { ui::ShowDetailDialog(MainWindow(), detail, true); }, kDetailClass, {[&](HWND d) {
                                  const auto before = ChildStates(d);
                                  const RECT original = OuterRect(d);
                                  const LONG height = FontHeight(GetDlgItem(d, id::kDetailName));
                                  SendDpiChanged(d, 144, {original.left, original.top, original.left + 640,
                                                          original.top + 680});
                                  for (const Sample& s : kDetailSamples) ExpectAtScaledPlace(d, s, 144);
                                  EXPECT_EQ(FontHeight(GetDlgItem(d, id::kDetailName)), MulDiv(height, 144, 96));
                                  SendDpiChanged(d, 96, original);
                                  ExpectSameStates(before, ChildStates(d));
                                  EXPECT_EQ(ClientSize(d).cx, 420);
                                  EXPECT_EQ(ClientSize(d).cy, 426);
                                  ClickChild(d, id::kDetailCancel);
                              }});
    EXPECT_TRUE(ran);
}

INSTANTIATE_TEST_SUITE_P(, DpiRelayout, testing::Values(1, 0), LanguageName);

}  // namespace
