#include "ui/posted_messages.h"

#include <atomic>

#include "ui/app.h"
#include "ui/controls.h"

namespace ui {
namespace {

std::atomic<long> allocatedPayloads{0};
std::atomic<long> freedPayloads{0};

// Posts the message with a payload the receiver will own; frees it here when posting fails (no
// window, or its queue is full), so a payload is freed exactly once either way.
template <typename Payload>
void PostOwned(UINT message, WPARAM wParam, std::unique_ptr<Payload> payload) {
    allocatedPayloads.fetch_add(1);
    Payload* raw = payload.release();
    if (!PostMessageW(App().mainWindow, message, wParam, reinterpret_cast<LPARAM>(raw))) {
        delete raw;
        freedPayloads.fetch_add(1);
    }
}

template <typename Payload>
std::unique_ptr<Payload> TakeOwned(LPARAM lParam) {
    if (lParam == 0) return nullptr;
    freedPayloads.fetch_add(1);
    return std::unique_ptr<Payload>(reinterpret_cast<Payload*>(lParam));
}

}  // namespace

void PostLogLine(const std::string& line, const char* prefix) {
    PostOwned(WM_APP_LOG, 0, std::make_unique<std::wstring>(Wide(prefix + line) + L"\r\n"));
}

void PostSlaveWrite(uint16_t startAddress, const std::vector<uint16_t>& values) {
    PostOwned(WM_APP_SLAVE_WRITE, 0, std::make_unique<SlaveWrite>(SlaveWrite{startAddress, values}));
}

void PostPollResults(bool registerTab, const PollResults& results) {
    PostOwned(WM_APP_POLL_RESULTS, registerTab ? 1 : 0, std::make_unique<PollResults>(results));
}

void PostAlarmChanged() { PostMessageW(App().mainWindow, WM_APP_ALARM, 0, 0); }

void PostTraceChanged() { PostMessageW(App().mainWindow, WM_APP_TRACE, 0, 0); }

std::unique_ptr<std::wstring> TakeLogLine(LPARAM lParam) { return TakeOwned<std::wstring>(lParam); }

std::unique_ptr<SlaveWrite> TakeSlaveWrite(LPARAM lParam) { return TakeOwned<SlaveWrite>(lParam); }

std::unique_ptr<PollResults> TakePollResults(LPARAM lParam) { return TakeOwned<PollResults>(lParam); }

void FreeQueuedPayloads(HWND window) {
    MSG message;
    while (PeekMessageW(&message, window, WM_APP_LOG, WM_APP_POLL_RESULTS, PM_REMOVE)) {
        switch (message.message) {
            case WM_APP_LOG: TakeLogLine(message.lParam); break;
            case WM_APP_SLAVE_WRITE: TakeSlaveWrite(message.lParam); break;
            case WM_APP_POLL_RESULTS: TakePollResults(message.lParam); break;
            default: break;
        }
    }
}

PayloadCounts PostedPayloadCounts() { return {allocatedPayloads.load(), freedPayloads.load()}; }

}  // namespace ui
