#include "ui/structures_page.h"

#include "ui/app.h"

namespace ui::structures_page {

void Build(HWND, std::vector<HWND>&, int, int) {}

bool OnCommand(int) { return false; }

void OnStructureSelected(int32_t structureId) { App().selectedStructureId = structureId; }

void OnDetailDoubleClick(int) {}

HWND StructureList() { return nullptr; }

HWND DetailList() { return nullptr; }

void ShowLiveValues(const PollResults&) {}

void LoadStructures() {}

void RefreshLists() {}

}  // namespace ui::structures_page
