#pragma once
// The five messages that carry events from worker threads to the window thread. Workers never
// touch a control: they post, and the window procedure does the drawing. A payload is allocated by
// the sender and freed by the handler in the window procedure; alarm events and trace frames are
// not copied into messages, the window reads them under their own locks.
#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "polling/polling_engine.h"

namespace ui {

inline constexpr UINT WM_APP_LOG = WM_APP + 1;           // lParam: std::wstring*, one line with "\r\n"
inline constexpr UINT WM_APP_SLAVE_WRITE = WM_APP + 2;   // lParam: SlaveWrite*
inline constexpr UINT WM_APP_POLL_RESULTS = WM_APP + 3;  // wParam 1 register tab, 0 structures; lParam: vector*
inline constexpr UINT WM_APP_ALARM = WM_APP + 4;         // no payload
inline constexpr UINT WM_APP_TRACE = WM_APP + 5;         // no payload

// A master wrote these registers into the slave's image.
struct SlaveWrite {
    uint16_t startAddress = 0;
    std::vector<uint16_t> values;
};

using PollResults = std::vector<Modbus::PollingResult>;

// Senders (any thread). The log line is UTF-8 without a line end; `prefix` goes in front of it.
void PostLogLine(const std::string& line, const char* prefix = "");
void PostSlaveWrite(uint16_t startAddress, const std::vector<uint16_t>& values);
void PostPollResults(bool registerTab, const PollResults& results);
void PostAlarmChanged();
void PostTraceChanged();

// Receivers (the window procedure): each takes ownership of the payload it is given exactly once.
std::unique_ptr<std::wstring> TakeLogLine(LPARAM lParam);
std::unique_ptr<SlaveWrite> TakeSlaveWrite(LPARAM lParam);
std::unique_ptr<PollResults> TakePollResults(LPARAM lParam);

// Frees the payloads of the window's messages still queued. Shut-down calls it once every worker
// has stopped: the window is going, so those messages would never be handled.
void FreeQueuedPayloads(HWND window);

// How many payloads were allocated and how many freed since start: the two are equal whenever no
// message is in flight. A payload whose message could not be posted is freed by the sender.
struct PayloadCounts {
    long allocated = 0;
    long freed = 0;
};
PayloadCounts PostedPayloadCounts();

}  // namespace ui
