#pragma once
// Page 1, "Structures": the structure list and its inline editor, the detail list, structure
// polling with the "Live Values" box, and the recording buttons.
#include <windows.h>

#include <string>
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

// The backup of the settings dialog. Export writes the file out first, unless it could not be read
// completely at start-up and nothing has been changed since: then the file is copied as it is, so
// the backup holds everything the damaged file still has. Import copies the chosen file over the
// structures file and reads it; a file that cannot be read completely is reported like one at
// start-up, with what was read before the error kept. Export is false when the copy failed.
bool ExportStructuresFile(const std::wstring& to);
enum class ImportResult { CopyFailed, Imported, Damaged };
ImportResult ImportStructuresFile(const std::wstring& from);

}  // namespace ui::structures_page
