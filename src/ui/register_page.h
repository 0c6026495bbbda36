#pragma once
// Page 0, "Register R/W": single writes and reads on the main connection with a decoded preview,
// the cyclic poll of one read, and the protocol log.
#include <windows.h>

#include <string>
#include <vector>

#include "ui/posted_messages.h"

namespace ui::register_page {

void Build(HWND window, std::vector<HWND>& page);

void OnWrite();      // 1017
void OnRead();       // 1030
void OnPollStart();  // 1032
void OnPollStop();   // 1033

void OnSlaveWrite(const SlaveWrite& write);     // WM_APP_SLAVE_WRITE
void OnPollResults(const PollResults& results);  // WM_APP_POLL_RESULTS, wParam 1

// The protocol log. Lines are collected and reach the edit control together, when the message loop
// comes round or before the control handles its next message (a read of its text included).
// A line of the window's own (a handler's result): the lines still queued go in before it.
void AppendLog(const std::wstring& text);
// A line that came as WM_APP_LOG, with the lines queued right behind it, in the order posted.
void AppendPostedLine(const std::wstring& text);

// Set by the connection panel on connect and disconnect.
void EnableConnectionButtons(bool write, bool read, bool pollStart);

}  // namespace ui::register_page
