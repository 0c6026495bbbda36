#include "ui/alarms_page.h"

namespace ui::alarms_page {

void Build(HWND, std::vector<HWND>&) {}

bool OnCommand(int) { return false; }

void Refresh() {}

void RefreshCounter() {}

}  // namespace ui::alarms_page
