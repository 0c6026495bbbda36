#pragma once
// The process-wide objects of the window program. They live for the whole run; the window keeps
// no context object of its own. Only the window thread touches the window handles; the subsystem
// objects guard themselves (see docs/ARCHITECTURE.md).
#include <windows.h>

#include <cstdint>
#include <mutex>
#include <vector>

#include "model/alarm_engine.h"
#include "model/app_settings.h"
#include "model/structure_store.h"
#include "polling/polling_engine.h"
#include "polling/recording_buffer.h"
#include "protocol/modbus_client.h"

namespace ui {

inline constexpr int kPageCount = 4;
inline constexpr int kRegisterPage = 0;
inline constexpr int kStructuresPage = 1;
inline constexpr int kDiagnosticsPage = 2;
inline constexpr int kAlarmsPage = 3;

struct AppState {
    HINSTANCE instance = nullptr;
    HWND mainWindow = nullptr;
    int language = 0;  // non-zero English, zero German; copied from the settings at start-up
    int dpi = 96;  // the main window's DPI (96 is the design's)
    HFONT normalFont = nullptr;  // the main window's fonts, at its DPI
    HFONT boldFont = nullptr;
    HWND tabControl = nullptr;
    std::vector<HWND> pageControls[kPageCount];  // each page's controls in creation order
    int32_t selectedStructureId = 0;
};

AppState& App();

// The subsystem objects.
ModbusClient& MainConnection();              // the connection panel's master or slave
ModbusClient& StructurePollingConnection();  // used by structure polling only
PollingEngine& Poller();                     // the one polling worker of both pages
AlarmEngine& Alarms();
StructureStore& Store();
RecordingBuffer& Recording();
AppSettings& Settings();

// The main connection is one wire: the poll thread's cyclic reads and the window thread's reads,
// writes, connects and disconnects each hold this lock for their whole exchange, so no request
// ever interleaves with another and no socket closes under a transaction.
std::mutex& MainWireMutex();

}  // namespace ui
