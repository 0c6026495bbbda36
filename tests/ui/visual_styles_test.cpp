// The window with visual styles (Common Controls 6 and an active theme, as on Windows 10 and 11)
// and without them (classic drawing). The buttons, check boxes and combo boxes are themed when a
// theme is active; the tab control never is, so its body keeps the button-face colour the labels
// are painted with, and no label stands on a patch of another colour. Screenshots of every page and
// both dialogs, named "<lang>-styled-..." or "<lang>-classic-...".
//
// Run in a prefix with light.msstyles active (KESTREL_GUI_THEME=light) and in one without a theme
// (KESTREL_GUI_THEME=none), see tools/wine-gui-run.sh.
#include <windows.h>
#include <commctrl.h>
#include <uxtheme.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "dialog_driver.h"
#include "gui_harness.h"
#include "ui/app.h"
#include "ui/control_ids.h"
#include "ui/controls.h"
#include "ui/detail_dialog.h"
#include "ui/structures_page.h"
#include "ui_test_support.h"

namespace {

using namespace gui;
namespace id = ui::id;

bool Themed() { return IsThemeActive() && IsAppThemed(); }

std::string Style() { return Themed() ? "styled-" : "classic-"; }

std::string Hex(COLORREF color) {
    char text[16];
    std::snprintf(text, sizeof(text), "#%02X%02X%02X", GetRValue(color), GetGValue(color), GetBValue(color));
    return text;
}

// A point of each page where only the tab control's body shows (inside a group box, away from
// every control), and a point of a label of the page beside its text.
struct PageSpots {
    const char* name;
    POINT body;
    POINT label;
};
const PageSpots kSpots[ui::kPageCount] = {
    {"register", {400, 275}, {38, 222}},       // inside "Write Registers"; beside "FC:"
    {"structures", {400, 350}, {76, 395}},     // below the structure list; beside "Name:"
    {"diagnostics", {500, 795}, {765, 200}},   // right of the buttons; the end of the statistics line
    {"alarms", {600, 795}, {235, 200}},        // right of the buttons; the end of the counter
};

// The prefix the runner was asked for (tools/wine-gui-run.sh passes KESTREL_GUI_THEME on): there
// the theme must be active, or must not be.
class Screens : public WindowTest {
protected:
    void SetUp() override {
        WindowTest::SetUp();
        const char* variable = std::getenv("KESTREL_GUI_THEME");
        const std::string wanted = variable != nullptr ? variable : "";
        if (wanted == "light") {
            EXPECT_TRUE(Themed()) << "light.msstyles is not active";
        } else if (wanted == "none") {
            EXPECT_FALSE(Themed()) << "a theme is active";
        }
    }
};

TEST_P(Screens, EveryPageShowsItsLabelsOnTheTabBodyInTheButtonFaceColour) {
    const COLORREF face = GetSysColor(COLOR_BTNFACE);
    std::printf("theme active: %s, button face %s\n", Themed() ? "yes" : "no", Hex(face).c_str());
    // The tab control draws itself classically in both cases; the buttons follow the theme.
    EXPECT_EQ(GetWindowTheme(Control(id::kTabControl)), nullptr);
    if (Themed()) {
        EXPECT_NE(GetWindowTheme(Control(id::kConnect)), nullptr);
        EXPECT_NE(GetWindowTheme(Control(id::kTcp)), nullptr);
        EXPECT_NE(GetWindowTheme(Control(id::kWriteFunction)), nullptr);
    } else {
        EXPECT_EQ(GetWindowTheme(Control(id::kConnect)), nullptr);
    }
    for (int page = 0; page < ui::kPageCount; ++page) {
        SelectTab(page);
        const PageSpots& spots = kSpots[page];
        const COLORREF body = ScreenPixel(MainWindow(), spots.body.x, spots.body.y);
        const COLORREF label = ScreenPixel(MainWindow(), spots.label.x, spots.label.y);
        EXPECT_EQ(Hex(body), Hex(face)) << spots.name << ": the tab body";
        EXPECT_EQ(Hex(label), Hex(face)) << spots.name << ": beside a label";
        Screenshot(Prefix() + Style() + "page-" + spots.name);
    }
}

TEST_P(Screens, SettingsDialog) {
    const bool ran = RunModal([] { Click(id::kSettings); }, L"KestrelSettingsDlg", {[&](HWND d) {
                                  if (Themed()) {
                                      EXPECT_NE(GetWindowTheme(GetDlgItem(d, id::kSettingsOk)), nullptr);
                                  }
                                  // Right of the radio buttons, inside "Appearance".
                                  EXPECT_EQ(Hex(ScreenPixel(d, 350, 38)), Hex(GetSysColor(COLOR_BTNFACE)));
                                  Screenshot(Prefix() + Style() + "settings-dialog", d);
                                  ClickChild(d, id::kSettingsCancel);
                              }});
    EXPECT_TRUE(ran);
}

TEST_P(Screens, DetailDialog) {
    Modbus::ModbusDetail detail;
    detail.name = "Pressure";
    detail.unit = "bar";
    const bool ran = RunModal([&] { ui::ShowDetailDialog(MainWindow(), detail, true); }, L"KestrelDetailDlg",
                              {[&](HWND d) {
                                  if (Themed()) {
                                      EXPECT_NE(GetWindowTheme(GetDlgItem(d, id::kDetailSave)), nullptr);
                                  }
                                  // Right of the limits, inside "Alarms".
                                  EXPECT_EQ(Hex(ScreenPixel(d, 340, 300)), Hex(GetSysColor(COLOR_BTNFACE)));
                                  Screenshot(Prefix() + Style() + "detail-dialog", d);
                                  ClickChild(d, id::kDetailCancel);
                              }});
    EXPECT_TRUE(ran);
}

// The README's picture of the Structures page: the demo device served by this program itself (Slave
// role) and polled, on a free port instead of its 1502.
TEST_P(Screens, StructuresPagePollingTheDemoDevice) {
    SelectTab(ui::kStructuresPage);
    Click(id::kStructureDemo);
    ModbusStructure demo = ui::Store().Structures().at(0);
    const uint16_t port = FreeTcpPort();
    demo.port = port;
    ASSERT_TRUE(ui::Store().UpdateStructureFields(demo.id, demo));
    ui::structures_page::RefreshLists();
    ConnectTcp(port, false);
    ASSERT_TRUE(ui::MainConnection().IsConnected());
    SelectTab(ui::kStructuresPage);
    SelectListRow(Control(id::kStructureList), 0);
    Type(id::kStructurePollInterval, L"250");
    Click(id::kStructurePollStart);
    ASSERT_TRUE(ui::Poller().IsRunning());
    // The demo device's data is German in both languages; its last detail is "Spannung".
    EXPECT_TRUE(PumpUntil([] { return Text(id::kLiveValues).find(L"Spannung") != std::wstring::npos; }, 5000))
        << ui::Utf8(Text(id::kLiveValues));
    Pump(600);
    Screenshot(Prefix() + Style() + "structures-polling-demo");
    Click(id::kStructurePollStop);
    Click(id::kConnect);
}

INSTANTIATE_TEST_SUITE_P(, Screens, testing::Values(1, 0), LanguageName);

}  // namespace
