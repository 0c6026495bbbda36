#pragma once
// The connection panel above the tabs: role, transport, peer or serial port, unit id, and the
// Connect/Disconnect button of the main connection. Visible on every page.
#include <windows.h>

#include <string>

namespace ui::connection_panel {

void Build(HWND window);

// Commands 1001/1002: shows the TCP fields or the serial fields.
void ShowTransportFields();
// Command 1010: connects the main connection, or disconnects it when connected.
void OnConnectButton();

bool IsConnected();
bool IsMasterRole();
// The "Slave-ID:" field through `_wtoi` (not yet narrowed).
int UnitIdField();
void SetStatus(const std::wstring& text);

// The structure list's "Conn." button: the structure's endpoint goes into the TCP fields and the
// "TCP" radio is checked (the field visibility is left as it is).
void FillTcpEndpoint(const std::wstring& ip, const std::wstring& port, const std::wstring& unitId);

}  // namespace ui::connection_panel
