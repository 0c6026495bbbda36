// The window's structure polling frames Modbus TCP whatever a structure's rtuOverTcp flag says
// (only kestrel-cli poll honours the flag): a structure with the flag set, against a scripted
// device, gets MBAP requests on the wire.
#include <gtest/gtest.h>

#include "common/localizer.h"
#include "support/scripted_tcp_peer.h"
#include "support/structure_polling_fixture.h"

#if !defined(_WIN32)
#include <unistd.h>
#endif

namespace {

std::string TempStorePath() {
#if defined(_WIN32)
    return "structure_polling_rtu_flag_test.json";
#else
    return "/tmp/kestrel-structure-polling-rtu-flag-" + std::to_string(::getpid()) + ".json";
#endif
}

class StructurePollingRtuFlagTest : public StructurePollingFixture {
protected:
    StructurePollingRtuFlagTest() : StructurePollingFixture(TempStorePath()) {}
    void TearDown() override {
        StructurePollingFixture::TearDown();
        std::remove(store.Path().c_str());
    }
};

TEST_F(StructurePollingRtuFlagTest, AStructureWithTheFlagSetIsPolledWithMbapFrames) {
    // Answers one MBAP request for FC03 of one register with 0x1234, then waits for the close.
    ScriptedTcpPeer device([](ScriptedTcpPeer& p) {
        if (!p.Accept()) return;
        const ScriptedTcpPeer::Bytes request = p.ReceiveTcpRequest();
        if (request.size() != 12) return;
        p.Send({request[0], request[1], 0x00, 0x00, 0x00, 0x05, 0x01, 0x03, 0x02, 0x12, 0x34});
        p.Receive(1);
    });
    ModbusStructure s;
    s.name = "Gateway device";
    s.ip = "127.0.0.1";
    s.port = device.Port();
    s.unitId = 1;
    s.rtuOverTcp = true;
    Modbus::ModbusDetail d;
    d.name = "Level";
    d.functionCode = 3;
    d.registerAddress = 7;
    d.dataType = Modbus::DataType::UInt16;
    s.details = {d};
    const int32_t id = store.AddStructure(s);

    ASSERT_EQ(StartStructurePolling(polling, id, 100, nullptr, HandOff()), StructurePollStart::Started);
    const std::vector<Modbus::PollingResult> cycle = WaitForCycles(1);
    StopStructurePolling(polling);
    device.Join();
    ASSERT_EQ(cycle.size(), 1u);
    EXPECT_TRUE(cycle[0].ok);
    EXPECT_EQ(cycle[0].displayText, "4660");
    // MBAP header (transaction id, protocol 0, length 6), unit 1, FC03, address 7, count 1: no CRC.
    const ScriptedTcpPeer::Bytes received = device.Received();
    ASSERT_GE(received.size(), 12u);
    EXPECT_EQ(ScriptedTcpPeer::Bytes(received.begin() + 2, received.begin() + 12),
              (ScriptedTcpPeer::Bytes{0x00, 0x00, 0x00, 0x06, 0x01, 0x03, 0x00, 0x07, 0x00, 0x01}));
}

}  // namespace
