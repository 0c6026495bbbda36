#pragma once
// What the window tests share beyond driving the window: the texts of every control, the tab
// captions and list items, positions, the language of a parameterised test, and a slave of our
// own in the test's process for the window to talk to.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "protocol/modbus_client.h"

namespace gui {

// The texts of all child windows of the main window, in creation order.
std::vector<std::wstring> ChildTexts();
bool HasChildText(const std::wstring& text);
std::wstring TabText(int index);
std::vector<std::wstring> ListItems(int id);
// A control's rectangle in client coordinates of the main window.
RECT ControlRect(int id);
// The visible state of every control of each page's list.
bool PageControlsVisible(int page);
bool PageControlsHidden(int page);

// Lines of the protocol log (without their "\r\n"), and how many of them start with `prefix`.
std::vector<std::wstring> LogLines();
int CountLogLinesStartingWith(const std::wstring& prefix);
bool LogHasLine(const std::wstring& line);

// Fills the connection panel for TCP to 127.0.0.1:port and clicks Connect.
void ConnectTcp(uint16_t port, bool master = true);

// A slave of ours on 127.0.0.1 (a free port) or on a COM port, serving its own register image;
// stopped when it goes out of scope.
class TestSlave {
public:
    explicit TestSlave(uint8_t unitId = 1, const std::string& comPort = "");
    ~TestSlave();
    TestSlave(const TestSlave&) = delete;
    TestSlave& operator=(const TestSlave&) = delete;
    bool Started() const { return started_; }
    uint16_t Port() { return slave_.ListeningPort(); }
    SlaveRegisterImage& Image() { return slave_.Image(); }
    ModbusClient& Client() { return slave_; }

private:
    ModbusClient slave_;
    bool started_ = false;
};

// Runs a test once in English (1) and once in German (0).
class BothLanguages : public testing::TestWithParam<int> {
protected:
    int Language() const { return GetParam(); }
    bool English() const { return GetParam() != 0; }
    std::wstring Lang(const wchar_t* english, const wchar_t* german) const { return English() ? english : german; }
    std::string Prefix() const { return English() ? "en-" : "de-"; }
};

// A test on a freshly started window in the parameter's language; afterwards the window is closed
// and every payload posted to it must have been freed.
class WindowTest : public BothLanguages {
protected:
    void SetUp() override;
    void TearDown() override;
};

std::string LanguageName(const testing::TestParamInfo<int>& info);

}  // namespace gui
