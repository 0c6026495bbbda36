#include "ui_test_support.h"

#include <commctrl.h>

#include "gui_harness.h"
#include "ui/app.h"
#include "ui/control_ids.h"
#include "ui/posted_messages.h"

namespace gui {
namespace {

BOOL CALLBACK CollectChild(HWND child, LPARAM lParam) {
    reinterpret_cast<std::vector<std::wstring>*>(lParam)->push_back(Text(child));
    return TRUE;
}

}  // namespace

std::vector<std::wstring> ChildTexts() {
    std::vector<std::wstring> texts;
    EnumChildWindows(MainWindow(), CollectChild, reinterpret_cast<LPARAM>(&texts));
    return texts;
}

bool HasChildText(const std::wstring& text) {
    for (const auto& t : ChildTexts())
        if (t == text) return true;
    return false;
}

std::wstring TabText(int index) {
    wchar_t buffer[64] = {};
    TCITEMW item{};
    item.mask = TCIF_TEXT;
    item.pszText = buffer;
    item.cchTextMax = 64;
    SendMessageW(Control(ui::id::kTabControl), TCM_GETITEMW, static_cast<WPARAM>(index), reinterpret_cast<LPARAM>(&item));
    return buffer;
}

std::vector<std::wstring> ListItems(int id) {
    HWND list = Control(id);
    std::vector<std::wstring> items;
    const LRESULT count = SendMessageW(list, CB_GETCOUNT, 0, 0);
    for (LRESULT i = 0; i < count; ++i) {
        std::wstring text(static_cast<size_t>(SendMessageW(list, CB_GETLBTEXTLEN, i, 0)) + 1, L'\0');
        const LRESULT length = SendMessageW(list, CB_GETLBTEXT, i, reinterpret_cast<LPARAM>(text.data()));
        text.resize(length > 0 ? static_cast<size_t>(length) : 0);
        items.push_back(text);
    }
    return items;
}

RECT ControlRect(int id) {
    RECT rect{};
    GetWindowRect(Control(id), &rect);
    MapWindowPoints(nullptr, MainWindow(), reinterpret_cast<POINT*>(&rect), 2);
    return rect;
}

bool PageControlsVisible(int page) {
    for (HWND control : ui::App().pageControls[page])
        if (!IsWindowVisible(control)) return false;
    return true;
}

bool PageControlsHidden(int page) {
    for (HWND control : ui::App().pageControls[page])
        if (IsWindowVisible(control)) return false;
    return true;
}

std::vector<std::wstring> LogLines() {
    const std::wstring text = LogText();
    std::vector<std::wstring> lines;
    size_t start = 0;
    for (size_t end = text.find(L"\r\n"); end != std::wstring::npos; end = text.find(L"\r\n", start)) {
        lines.push_back(text.substr(start, end - start));
        start = end + 2;
    }
    if (start < text.size()) lines.push_back(text.substr(start));
    return lines;
}

int CountLogLinesStartingWith(const std::wstring& prefix) {
    int count = 0;
    for (const auto& line : LogLines())
        if (line.rfind(prefix, 0) == 0) ++count;
    return count;
}

bool LogHasLine(const std::wstring& line) {
    for (const auto& l : LogLines())
        if (l == line) return true;
    return false;
}

void ConnectTcp(uint16_t port, bool master) {
    if (!IsChecked(ui::id::kTcp)) Click(ui::id::kTcp);
    Click(master ? ui::id::kMaster : ui::id::kSlave);
    Type(ui::id::kIpAddress, L"127.0.0.1");
    Type(ui::id::kPort, std::to_wstring(port));
    Click(ui::id::kConnect);
}

TestSlave::TestSlave(uint8_t unitId, const std::string& comPort) {
    ConnectionConfig config;
    config.role = 1;
    config.unitId = unitId;
    if (comPort.empty()) {
        config.transport = 0;
        config.ipAddress = "127.0.0.1";
        config.port = 0;  // any free port; Port() tells which
    } else {
        config.transport = 1;
        config.serialPort = comPort;
    }
    started_ = slave_.Connect(config);
}

TestSlave::~TestSlave() { slave_.Disconnect(); }

void WindowTest::SetUp() { StartApp(Language()); }

void WindowTest::TearDown() {
    EXPECT_TRUE(CloseApp());
    const auto counts = ui::PostedPayloadCounts();
    EXPECT_EQ(counts.allocated, counts.freed);
}

std::string LanguageName(const testing::TestParamInfo<int>& info) { return info.param != 0 ? "English" : "German"; }

}  // namespace gui
