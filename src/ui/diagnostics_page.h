#pragma once
// Page 2, "Diagnostics": the statistics line, the list of traced frames, Clear and Export PCAP.
#include <windows.h>

#include <vector>

namespace ui::diagnostics_page {

void Build(HWND window, std::vector<HWND>& page);
// Commands 1059..1062; false for an id this page does not handle.
bool OnCommand(int id);
// Rebuilds the frame list and the statistics line from the trace log.
void Refresh();

}  // namespace ui::diagnostics_page
