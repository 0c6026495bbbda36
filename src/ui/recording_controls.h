#pragma once
// The recording buttons of the Structures page's "Polling / Recording" group: Record toggles the
// recording of polled values, CSV-Export writes the recording, JSON-Export the structure list.
#include <windows.h>

#include "ui/controls.h"

namespace ui::recording_controls {

// Creates the three buttons in a row from (x, y).
void Build(ControlFactory& f, int x, int y);

void OnRecord();      // 1055
void OnCsvExport();   // 1057
void OnJsonExport();  // 1058

}  // namespace ui::recording_controls
