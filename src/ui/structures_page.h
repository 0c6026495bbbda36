#pragma once
// Page 1, "Structures": the structure list and its inline editor, the detail list, structure
// polling with the "Live Values" box, and the recording buttons.
#include <windows.h>

#include <vector>

#include "ui/posted_messages.h"

namespace ui::structures_page {

void Build(HWND window, std::vector<HWND>& page, int width, int height);

// Commands 1035..1058; false for an id this page does not handle.
bool OnCommand(int id);
// WM_NOTIFY from the structure list (LVN_ITEMCHANGED, selected) and the detail list (NM_DBLCLK).
void OnStructureSelected(int32_t structureId);
void OnDetailDoubleClick(int item);
HWND StructureList();
HWND DetailList();

// WM_APP_POLL_RESULTS with wParam 0.
void ShowLiveValues(const PollResults& results);

// Loads the structures file and fills the structure list (the last step of building the window).
void LoadStructures();
// Rebuilds the structure list (and empties the detail list), e.g. after an import.
void RefreshLists();

}  // namespace ui::structures_page
