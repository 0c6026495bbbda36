#pragma once
// Page 3, "Alarms": the unacknowledged counter, the alarm list and its three buttons.
#include <windows.h>

#include <vector>

namespace ui::alarms_page {

void Build(HWND window, std::vector<HWND>& page);
// Commands 1063..1067; false for an id this page does not handle.
bool OnCommand(int id);
// Rebuilds the alarm list and the counter.
void Refresh();
// Sets the counter alone.
void RefreshCounter();

}  // namespace ui::alarms_page
