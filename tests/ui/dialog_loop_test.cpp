// The two modal windows closed by a message SENT to them from another thread, as an automation
// tool, an accessibility tool or a shutdown broadcast closes them: a click sent to OK (Save) or
// Cancel, or the close box. The modal loop must end as soon as the window is gone, with the main
// window enabled again and in front, even though no message is ever posted to the loop's thread.
#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>

#include "dialog_driver.h"
#include "gui_harness.h"
#include "model/structure.h"
#include "ui/app.h"
#include "ui/control_ids.h"
#include "ui/detail_dialog.h"
#include "ui_test_support.h"

namespace {

using namespace gui;
namespace id = ui::id;

constexpr const wchar_t* kSettingsClass = L"KestrelSettingsDlg";
constexpr const wchar_t* kDetailClass = L"KestrelDetailDlg";

// How the other thread closes the window: BM_CLICK sent to one of its buttons, or the close box
// (WM_SYSCOMMAND SC_CLOSE sent to the window itself).
struct SentClose {
    int button;  // 0: the close box
};

struct Outcome {
    bool sent = false;
    bool enabledWithin2s = false;  // seen from the other thread, right after its send returned
    bool foregroundAfterLoop = false;
    bool dialogGone = false;
};

class DialogLoop : public WindowTest {
protected:
    void SetUp() override {
        WindowTest::SetUp();
        // Its WM_TIMER messages would end a loop that waits for a posted message, hiding the defect.
        StopAnsweringDialogs();
    }
    void TearDown() override {
        StartAnsweringDialogs();
        WindowTest::TearDown();
    }

    // Runs `open` on this thread: it shows the modal window and returns when the loop ends. Another
    // thread waits for the window, sends it the message, and then watches the main window from
    // outside for 2 s. If the loop still runs after that, the watcher posts WM_NULL to this thread
    // so that a failing test ends instead of waiting for ever.
    Outcome CloseFromAnotherThread(const wchar_t* windowClass, const std::function<void()>& open, SentClose how) {
        Outcome outcome;
        const DWORD loopThread = GetCurrentThreadId();
        HWND main = MainWindow();
        std::atomic<bool> loopEnded{false};
        std::thread closer([&] {
            HWND dialog = nullptr;
            for (int i = 0; i < 500 && dialog == nullptr; ++i) {
                dialog = FindWindowW(windowClass, nullptr);
                if (dialog == nullptr) Sleep(10);
            }
            if (dialog == nullptr) return;
            Sleep(300);  // the loop is now waiting, with nothing queued
            if (how.button != 0) {
                SendMessageW(GetDlgItem(dialog, how.button), BM_CLICK, 0, 0);
            } else {
                SendMessageW(dialog, WM_SYSCOMMAND, SC_CLOSE, 0);
            }
            outcome.sent = true;
            const DWORD start = GetTickCount();
            while (GetTickCount() - start < 2000 && !(loopEnded && IsWindowEnabled(main))) Sleep(5);
            outcome.enabledWithin2s = loopEnded && IsWindowEnabled(main);
            if (!loopEnded) PostThreadMessageW(loopThread, WM_NULL, 0, 0);
        });
        open();
        loopEnded = true;
        outcome.foregroundAfterLoop = GetForegroundWindow() == main;
        closer.join();
        outcome.dialogGone = FindTopLevel(windowClass) == nullptr;
        return outcome;
    }

    Outcome CloseSettings(SentClose how) {
        return CloseFromAnotherThread(kSettingsClass, [] { Click(id::kSettings); }, how);
    }

    Outcome CloseDetail(SentClose how, std::optional<Modbus::ModbusDetail>& result) {
        Modbus::ModbusDetail detail;
        detail.name = "Pressure";
        detail.registerAddress = 7;
        return CloseFromAnotherThread(
            kDetailClass, [&] { result = ui::ShowDetailDialog(MainWindow(), detail, true); }, how);
    }

    static void ExpectClosedAtOnce(const Outcome& outcome) {
        EXPECT_TRUE(outcome.sent);
        EXPECT_TRUE(outcome.enabledWithin2s) << "the main window stayed disabled after the dialog was closed";
        EXPECT_TRUE(outcome.foregroundAfterLoop);
        EXPECT_TRUE(outcome.dialogGone);
        EXPECT_TRUE(IsWindowEnabled(MainWindow()));
        EXPECT_EQ(GetForegroundWindow(), MainWindow());
    }
};

TEST_P(DialogLoop, SettingsClosedByAClickSentToOk) {
    ExpectClosedAtOnce(CloseSettings({id::kSettingsOk}));
}

TEST_P(DialogLoop, SettingsClosedByAClickSentToCancel) {
    ExpectClosedAtOnce(CloseSettings({id::kSettingsCancel}));
}

TEST_P(DialogLoop, SettingsClosedByTheCloseBoxFromAnotherThread) {
    ExpectClosedAtOnce(CloseSettings({0}));
}

TEST_P(DialogLoop, DetailClosedByAClickSentToSave) {
    std::optional<Modbus::ModbusDetail> result;
    ExpectClosedAtOnce(CloseDetail({id::kDetailSave}, result));
    ASSERT_TRUE(result.has_value());
    EXPECT_EQ(result->name, "Pressure");
    EXPECT_EQ(result->registerAddress, 7);
}

TEST_P(DialogLoop, DetailClosedByAClickSentToCancel) {
    std::optional<Modbus::ModbusDetail> result;
    ExpectClosedAtOnce(CloseDetail({id::kDetailCancel}, result));
    EXPECT_FALSE(result.has_value());
}

TEST_P(DialogLoop, DetailClosedByTheCloseBoxFromAnotherThread) {
    std::optional<Modbus::ModbusDetail> result;
    ExpectClosedAtOnce(CloseDetail({0}, result));
    EXPECT_FALSE(result.has_value());
}

INSTANTIATE_TEST_SUITE_P(, DialogLoop, testing::Values(1, 0), LanguageName);

}  // namespace
