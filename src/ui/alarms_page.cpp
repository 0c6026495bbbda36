#include "ui/alarms_page.h"

#include <commctrl.h>

#include <string>
#include <vector>

#include "ui/app.h"
#include "ui/control_ids.h"
#include "ui/controls.h"
#include "ui/list_view_rows.h"

namespace ui::alarms_page {
namespace {

struct Controls {
    HWND counter, alarms;
} c{};

void AppendAlarmRow(const Modbus::AlarmEvent& event) {
    AppendRow(c.alarms, {Wide(Modbus::FormatAlarmTime(event.timestamp)), Wide(Modbus::AlarmKindName(event.type)),
                         Wide(event.detailName), Wide(event.message),
                         event.acknowledged ? T("Yes", "Ja") : T("No", "Nein")});
}

void AcknowledgeSelected() {
    const int row = SelectedRow(c.alarms);
    // Rows and events correspond by position; a row beyond the events (a stale list) does nothing.
    if (row >= 0) Alarms().Acknowledge(static_cast<size_t>(row));
}

}  // namespace

void Build(HWND window, std::vector<HWND>& page) {
    ControlFactory f(window, &page, false);
    c.counter = f.Static(id::kAlarmCounter, T("Unacknowledged: 0", "Unquittiert: 0"), 20, 183, 220, 20);
    c.alarms = f.ListView(id::kAlarmList,
                          {{T("Time", "Zeit"), 70},
                           {T("Type", "Typ"), 130},
                           {L"Detail", 100},
                           {T("Message", "Nachricht"), 310},
                           {T("Ack.", "Quitt."), 50}},
                          20, 208, 750, 567, LVS_SHOWSELALWAYS | WS_BORDER, LVS_EX_FULLROWSELECT | LVS_EX_GRIDLINES);
    f.Button(id::kAcknowledge, T("Acknowledge", "Quittieren"), 20, 780, 110, 26);
    f.Button(id::kAcknowledgeAll, T("Acknowledge All", "Alle quittieren"), 140, 780, 130, 26);
    f.Button(id::kClearAlarms, T("Clear List", "Liste leeren"), 280, 780, 110, 26);
}

bool OnCommand(int command) {
    switch (command) {
        case id::kAcknowledge: AcknowledgeSelected(); break;
        case id::kAcknowledgeAll: Alarms().AcknowledgeAll(); break;
        case id::kClearAlarms: Alarms().ClearAlarms(); break;
        default: return false;
    }
    Refresh();
    return true;
}

void Refresh() {
    SendMessageW(c.alarms, WM_SETREDRAW, FALSE, 0);
    SendMessageW(c.alarms, LVM_DELETEALLITEMS, 0, 0);
    // Filled from a copy: the engine's lock is never held while the list draws.
    for (const Modbus::AlarmEvent& event : Alarms().Events()) AppendAlarmRow(event);
    SendMessageW(c.alarms, WM_SETREDRAW, TRUE, 0);
    InvalidateRect(c.alarms, nullptr, TRUE);
    RefreshCounter();
}

void RefreshCounter() {
    SetText(c.counter, T("Unacknowledged: ", "Unquittiert: ") + std::to_wstring(Alarms().UnacknowledgedCount()));
}

}  // namespace ui::alarms_page
