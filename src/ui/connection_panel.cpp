#include "ui/connection_panel.h"

#include <mutex>

#include "ui/app.h"
#include "ui/control_ids.h"
#include "ui/controls.h"
#include "ui/register_page.h"

namespace ui::connection_panel {
namespace {

struct Controls {
    HWND tcp, rtu, master, slave;
    HWND ipLabel, ip, portLabel, port;
    HWND comLabel, com, baudLabel, baud;
    HWND unitId, connect, status;
} c{};

bool connected = false;

std::vector<std::wstring> ComPortNames() {
    std::vector<std::wstring> names;
    for (int n = 1; n <= 20; ++n) names.push_back(L"COM" + std::to_wstring(n));
    return names;
}

std::wstring RoleStatusText(const ConnectionConfig& config) {
    std::wstring text = config.transport == 0 ? L"TCP " : L"RTU ";
    text += config.role == 0 ? L"Master" : L"Slave";
    return text + T(" - Connected", " - Verbunden");
}

ConnectionConfig ConfigFromFields() {
    // Every field but the serial framing comes from the panel: serial connections always use 8 data
    // bits, no parity and 1 stop bit.
    ConnectionConfig config;
    config.transport = IsChecked(c.tcp) ? 0 : 1;
    config.role = IsChecked(c.master) ? 0 : 1;
    config.ipAddress = Utf8(GetText(c.ip));
    config.port = static_cast<uint16_t>(IntFromText(c.port));
    config.serialPort = Utf8(SelectedItemText(c.com));
    config.baudRate = static_cast<uint32_t>(_wtoi(SelectedItemText(c.baud).c_str()));
    config.unitId = static_cast<uint8_t>(IntFromText(c.unitId));
    return config;
}

void Connect() {
    const ConnectionConfig config = ConfigFromFields();
    bool ok;
    {
        std::lock_guard<std::mutex> wire(MainWireMutex());
        ok = MainConnection().Connect(config);
    }
    if (!ok) {
        SetStatus(T("Connection failed", "Verbindung fehlgeschlagen"));
        return;
    }
    connected = true;
    SetText(c.connect, T("Disconnect", "Trennen"));
    SetStatus(RoleStatusText(config));
    const bool master = config.role == 0;
    register_page::EnableConnectionButtons(true, master, master);
}

void Disconnect() {
    {
        std::lock_guard<std::mutex> wire(MainWireMutex());
        MainConnection().Disconnect();
    }
    connected = false;
    SetText(c.connect, T("Connect", "Verbinden"));
    SetStatus(T("Disconnected", "Getrennt"));
    register_page::EnableConnectionButtons(false, false, false);
}

}  // namespace

void Build(HWND window) {
    ControlFactory f(window, nullptr, true);
    f.Group(T("Connection", "Verbindung"), 10, 10, 770, 138);
    c.tcp = f.Radio(id::kTcp, L"TCP", 15, 32, 55, 20, true);
    c.rtu = f.Radio(id::kRtu, L"RTU", 75, 32, 55, 20, false);
    c.master = f.Radio(id::kMaster, L"Master", 180, 32, 70, 20, true);
    c.slave = f.Radio(id::kSlave, L"Slave", 258, 32, 60, 20, false);
    SetChecked(c.tcp, true);
    SetChecked(c.master, true);

    c.ipLabel = f.Label(L"IP:", 15, 61, 22, 18, SS_RIGHT);
    c.ip = f.Edit(id::kIpAddress, L"192.168.56.101", 42, 58, 120, 22);
    c.portLabel = f.Label(L"Port:", 158, 61, 34, 18, SS_RIGHT);
    c.port = f.Edit(id::kPort, L"1502", 197, 58, 55, 22, ES_NUMBER);
    c.comLabel = f.Label(L"COM:", 15, 61, 34, 18, SS_RIGHT);
    c.com = f.DropList(id::kComPort, ComPortNames(), 0, 53, 58, 78, 200, WS_VSCROLL);
    c.baudLabel = f.Label(L"Baud:", 130, 61, 34, 18, SS_RIGHT);
    c.baud = f.DropList(id::kBaudRate, {L"9600", L"19200", L"38400", L"57600", L"115200"}, 0, 168, 58, 82, 200,
                        WS_VSCROLL);
    f.Label(L"Slave-ID:", 340, 61, 58, 18, SS_RIGHT);
    c.unitId = f.Edit(id::kUnitId, L"1", 403, 58, 38, 22, ES_NUMBER);

    c.connect = f.Bold(f.Button(id::kConnect, T("Connect", "Verbinden"), 620, 50, 120, 52));
    c.status = f.Static(id::kConnectionStatus, T("Disconnected", "Getrennt"), 15, 101, 720, 18);

    connected = false;
    ShowTransportFields();
}

void ShowTransportFields() {
    const bool tcp = IsChecked(c.tcp);
    for (HWND control : {c.ipLabel, c.ip, c.portLabel, c.port}) ShowWindow(control, tcp ? SW_SHOW : SW_HIDE);
    for (HWND control : {c.comLabel, c.com, c.baudLabel, c.baud}) ShowWindow(control, tcp ? SW_HIDE : SW_SHOW);
}

void OnConnectButton() {
    if (connected) {
        Disconnect();
    } else {
        Connect();
    }
}

bool IsConnected() { return connected; }

bool IsMasterRole() { return IsChecked(c.master); }

int UnitIdField() { return IntFromText(c.unitId); }

void SetStatus(const std::wstring& text) { SetText(c.status, text); }

void FillTcpEndpoint(const std::wstring& ip, const std::wstring& port, const std::wstring& unitId) {
    SetText(c.ip, ip);
    SetText(c.port, port);
    SetText(c.unitId, unitId);
    SetChecked(c.tcp, true);
    SetChecked(c.rtu, false);
}

}  // namespace ui::connection_panel
