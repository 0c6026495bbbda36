// The connection panel: its fields and lists, the TCP/RTU swap, connecting and disconnecting in
// both roles over TCP and RTU, the status texts, and which Register R/W buttons it enables.
#include <gtest/gtest.h>

#include "gui_harness.h"
#include "protocol/trace_log.h"
#include "ui/app.h"
#include "ui/control_ids.h"
#include "ui/controls.h"
#include "ui/posted_messages.h"
#include "ui_test_support.h"
#include "support/scripted_tcp_peer.h"

namespace {

using namespace gui;
namespace id = ui::id;

class ConnectionPanel : public WindowTest {
protected:
    std::wstring Connected(const wchar_t* transportAndRole) const {
        return std::wstring(transportAndRole) + Lang(L" - Connected", L" - Verbunden");
    }
    void ExpectRegisterButtons(bool write, bool read, bool start) {
        EXPECT_EQ(IsEnabled(id::kWrite), write);
        EXPECT_EQ(IsEnabled(id::kRead), read);
        EXPECT_EQ(IsEnabled(id::kPollStart), start);
    }
};

TEST_P(ConnectionPanel, StartsWithItsDefaultsAndOnlyTheTcpFieldsShown) {
    EXPECT_TRUE(IsChecked(id::kTcp));
    EXPECT_FALSE(IsChecked(id::kRtu));
    EXPECT_TRUE(IsChecked(id::kMaster));
    EXPECT_FALSE(IsChecked(id::kSlave));
    EXPECT_EQ(Text(id::kIpAddress), L"192.168.56.101");
    EXPECT_EQ(Text(id::kPort), L"1502");
    EXPECT_EQ(Text(id::kUnitId), L"1");
    EXPECT_EQ(Text(id::kConnect), Lang(L"Connect", L"Verbinden"));
    EXPECT_EQ(Text(id::kConnectionStatus), Lang(L"Disconnected", L"Getrennt"));
    std::vector<std::wstring> comPorts;
    for (int n = 1; n <= 20; ++n) comPorts.push_back(L"COM" + std::to_wstring(n));
    EXPECT_EQ(ListItems(id::kComPort), comPorts);
    EXPECT_EQ(Text(id::kComPort), L"COM1");
    EXPECT_EQ(ListItems(id::kBaudRate), (std::vector<std::wstring>{L"9600", L"19200", L"38400", L"57600", L"115200"}));
    EXPECT_EQ(Text(id::kBaudRate), L"9600");
    EXPECT_TRUE(IsVisible(id::kIpAddress));
    EXPECT_TRUE(IsVisible(id::kPort));
    EXPECT_FALSE(IsVisible(id::kComPort));
    EXPECT_FALSE(IsVisible(id::kBaudRate));
    const RECT connect = ControlRect(id::kConnect);
    EXPECT_EQ(connect.left, 620);
    EXPECT_EQ(connect.top, 50);
    EXPECT_EQ(connect.right - connect.left, 120);
    EXPECT_EQ(connect.bottom - connect.top, 52);
}

TEST_P(ConnectionPanel, RtuSwapsInTheComAndBaudListsAtTheSamePlace) {
    const RECT ip = ControlRect(id::kIpAddress);
    Click(id::kRtu);
    EXPECT_FALSE(IsVisible(id::kIpAddress));
    EXPECT_FALSE(IsVisible(id::kPort));
    EXPECT_TRUE(IsVisible(id::kComPort));
    EXPECT_TRUE(IsVisible(id::kBaudRate));
    const RECT com = ControlRect(id::kComPort);
    EXPECT_EQ(com.top, ip.top);
    EXPECT_EQ(com.left, 53);
    EXPECT_EQ(ControlRect(id::kBaudRate).left, 168);
    Screenshot(Prefix() + "connection-rtu");
    Click(id::kTcp);
    EXPECT_TRUE(IsVisible(id::kIpAddress));
    EXPECT_FALSE(IsVisible(id::kComPort));
}

TEST_P(ConnectionPanel, BeforeAnyConnectStartIsEnabledButWriteAndReadAreNot) {
    ExpectRegisterButtons(false, false, true);
    EXPECT_FALSE(IsEnabled(id::kPollStop));
}

TEST_P(ConnectionPanel, MasterConnectAndDisconnectOverTcp) {
    TestSlave slave;
    ASSERT_TRUE(slave.Started());
    ConnectTcp(slave.Port());
    EXPECT_EQ(Text(id::kConnectionStatus), Connected(L"TCP Master"));
    EXPECT_EQ(Text(id::kConnect), Lang(L"Disconnect", L"Trennen"));
    EXPECT_TRUE(ui::MainConnection().IsConnected());
    ExpectRegisterButtons(true, true, true);
    Screenshot(Prefix() + "connected-master");
    Click(id::kConnect);
    EXPECT_EQ(Text(id::kConnectionStatus), Lang(L"Disconnected", L"Getrennt"));
    EXPECT_EQ(Text(id::kConnect), Lang(L"Connect", L"Verbinden"));
    EXPECT_FALSE(ui::MainConnection().IsConnected());
    // After the first disconnect Start is disabled as well.
    ExpectRegisterButtons(false, false, false);
}

TEST_P(ConnectionPanel, SlaveConnectEnablesWriteOnly) {
    const uint16_t port = FreeTcpPort();
    ConnectTcp(port, false);
    EXPECT_EQ(Text(id::kConnectionStatus), Connected(L"TCP Slave"));
    EXPECT_EQ(Text(id::kConnect), Lang(L"Disconnect", L"Trennen"));
    ExpectRegisterButtons(true, false, false);
    EXPECT_EQ(ui::MainConnection().ListeningPort(), port);
    Click(id::kConnect);
    EXPECT_EQ(Text(id::kConnectionStatus), Lang(L"Disconnected", L"Getrennt"));
    ExpectRegisterButtons(false, false, false);
}

TEST_P(ConnectionPanel, AFailedConnectChangesOnlyTheStatusLine) {
    ConnectTcp(ScriptedTcpPeer::ClosedPort());
    EXPECT_EQ(Text(id::kConnectionStatus), Lang(L"Connection failed", L"Verbindung fehlgeschlagen"));
    EXPECT_EQ(Text(id::kConnect), Lang(L"Connect", L"Verbinden"));
    EXPECT_FALSE(ui::MainConnection().IsConnected());
    ExpectRegisterButtons(false, false, true);
    // The reason is in the protocol log, in the connection's words.
    EXPECT_EQ(CountLogLinesStartingWith(Lang(L"TCP connection failed: ", L"TCP-Verbindung fehlgeschlagen: ")), 1)
        << ui::Utf8(LogText());
    Screenshot(Prefix() + "connect-failed");
}

TEST_P(ConnectionPanel, AUnitIdOf300IsSentAs44) {
    TestSlave slave(44);
    ASSERT_TRUE(slave.Started());
    Type(id::kUnitId, L"300");
    ConnectTcp(slave.Port());
    GlobalTraceLog().Clear();
    Click(id::kRead);
    const auto frames = GlobalTraceLog().Snapshot();
    ASSERT_EQ(frames.size(), 1u);
    ASSERT_GE(frames[0].request.size(), 7u);
    EXPECT_EQ(frames[0].request[6], 44);
    EXPECT_FALSE(frames[0].isTimeout);
    EXPECT_TRUE(LogHasLine(L"[Master] Gelesen ab 0: 0"));
}

TEST_P(ConnectionPanel, RtuMasterReadsFromASlaveOnTheOtherEndOfTheSerialPair) {
    ASSERT_FALSE(ComPortA().empty()) << "the runner maps a serial pair to COM ports";
    TestSlave slave(1, ComPortB());
    ASSERT_TRUE(slave.Started());
    slave.Image().SetHoldingRegisters(10, {11, 22, 33, 44});
    Click(id::kRtu);
    Select(id::kComPort, std::stoi(ComPortA().substr(3)) - 1);
    Select(id::kBaudRate, 4);
    Click(id::kConnect);
    EXPECT_EQ(Text(id::kConnectionStatus), Connected(L"RTU Master"));
    ExpectRegisterButtons(true, true, true);
    Type(id::kReadAddress, L"10");
    Click(id::kRead);
    EXPECT_EQ(Text(id::kRegister1), L"11");
    EXPECT_EQ(Text(id::kRegister1 + 3), L"44");
    EXPECT_TRUE(LogHasLine(L"[Master] Gelesen ab 10: 11"));
    Click(id::kConnect);
    EXPECT_EQ(Text(id::kConnectionStatus), Lang(L"Disconnected", L"Getrennt"));
}

TEST_P(ConnectionPanel, RtuSlaveServesAMasterOnTheOtherEndOfTheSerialPair) {
    ASSERT_FALSE(ComPortA().empty()) << "the runner maps a serial pair to COM ports";
    Click(id::kRtu);
    Click(id::kSlave);
    Select(id::kComPort, std::stoi(ComPortA().substr(3)) - 1);
    Type(id::kUnitId, L"7");
    Click(id::kConnect);
    EXPECT_EQ(Text(id::kConnectionStatus), Connected(L"RTU Slave"));
    ExpectRegisterButtons(true, false, false);

    ModbusClient master;
    ConnectionConfig config;
    config.transport = 1;
    config.serialPort = ComPortB();
    ASSERT_TRUE(master.Connect(config));
    ASSERT_TRUE(master.WriteMultipleRegisters(7, 1, {501, 502}));
    master.Disconnect();
    ASSERT_TRUE(PumpUntil([] { return Text(id::kRegister1 + 2) == L"502"; }, 3000));
    EXPECT_EQ(Text(id::kRegister1), L"0");
    EXPECT_EQ(Text(id::kRegister1 + 1), L"501");
    Click(id::kConnect);
}

INSTANTIATE_TEST_SUITE_P(, ConnectionPanel, testing::Values(1, 0), LanguageName);

}  // namespace
