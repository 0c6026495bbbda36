#include "ui/diagnostics_page.h"

namespace ui::diagnostics_page {

void Build(HWND, std::vector<HWND>&) {}

bool OnCommand(int) { return false; }

void Refresh() {}

}  // namespace ui::diagnostics_page
