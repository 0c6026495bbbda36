// The simulator's faults on the RTU-over-TCP slave (kestrel-cli slave --rtu-over-tcp-port): RTU
// frames on a TCP connection, so a drop and a bad CRC fit, a wrong transaction id does not. On the
// wire, and against our own RTU-over-TCP master, which checks the CRC of what it reads.
#include <gtest/gtest.h>

#if !defined(_WIN32)
#include <memory>

#include "sim/sim_test_support.h"

using namespace slavetest;
using namespace simtest;

namespace {

std::unique_ptr<ChildProcess> RtuOverTcpSlave(const std::string& fault, uint16_t& port) {
    auto slave = std::make_unique<ChildProcess>(Cli({"--lang", "en", "slave", "--rtu-over-tcp-port", "0", "--holding",
                                                     "0=0x1234", "--fault", fault, "--seed", "1"}));
    port = AnnouncedPort(*slave);
    return slave;
}

TEST(RtuOverTcpFaults, EachFaultOnTheWire) {
    const std::vector<std::tuple<std::string, std::string, TestClient::Result, std::string>> cases = {
        {"bad-crc:100", "01 03 02 12 34 4A CC", TestClient::Result::Data,
         "Fault: bad-crc unit=1 fc=3 address=0 crc=4ACC"},
        {"wrong-unit:100", HexDump(BuildRtuRequest(2, 3, Hex("02 12 34"))), TestClient::Result::Data,
         "Fault: wrong-unit unit=1 fc=3 address=0 answered-unit=2"},
        {"drop:100", "", TestClient::Result::Closed, "Fault: drop unit=1 fc=3 address=0"},
        {"silence:100", "", TestClient::Result::Silent, "Fault: silence unit=1 fc=3 address=0"},
    };
    for (const auto& [fault, bytes, result, line] : cases) {
        uint16_t port = 0;
        auto slave = RtuOverTcpSlave(fault, port);
        ASSERT_NE(port, 0) << slave->Stderr();
        TestClient client(port);
        ASSERT_TRUE(client.Send(Hex("01 03 00 00 00 01 84 0A")));
        TestClient::Result why;
        // A short wait only where nothing is to come; a loaded machine gets time for the rest.
        const int wait = result == TestClient::Result::Silent ? 300 : 3000;
        const Bytes got = client.Receive(bytes.empty() ? 1 : Hex(bytes).size(), wait, &why);
        EXPECT_EQ(ToHex(got), bytes) << fault;
        EXPECT_EQ(why, result) << fault;
        ASSERT_TRUE(slave->WaitForOutput(line + "\n", 3000)) << slave->Stdout();
        slave->Signal(SIGTERM);
        EXPECT_EQ(slave->Wait(5000), 0);
    }
    const CommandResult r = RunCommand(Cli({"slave", "--rtu-over-tcp-port", "0", "--fault", "wrong-tid:5"}), 10000);
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(Lines(r.err)[0],
              "kestrel-cli: --fault wrong-tid cannot be played here: only a Modbus TCP frame carries a transaction id");
}

TEST(RtuOverTcpFaults, OurMasterFailsABadCrcAndReportsADrop) {
    SetEnglish(true);
    for (const std::string fault : {"bad-crc:100", "drop:100"}) {
        uint16_t port = 0;
        auto slave = RtuOverTcpSlave(fault, port);
        ASSERT_NE(port, 0);
        ModbusClient master;
        ConnectionConfig config;
        config.transport = kTransportRtuOverTcp;
        config.ipAddress = "127.0.0.1";
        config.port = port;
        ASSERT_TRUE(master.Connect(config));
        LogCapture log(master);
        std::vector<uint16_t> values;
        EXPECT_FALSE(master.ReadHoldingRegisters(1, 0, 1, values)) << fault;
        if (fault == "bad-crc:100") {
            EXPECT_EQ(log.Lines(),
                      (std::vector<std::string>{"TX: 01 03 00 00 00 01 84 0A", "RX: 01 03 02 12 34 4A CC",
                                                "RTU over TCP CRC error.", "ReadHoldingRegisters failed."}));
            EXPECT_EQ(master.LastTransportFailure(), TransportFailure::CrcError);
        } else {
            EXPECT_EQ(log.Lines(), (std::vector<std::string>{"TX: 01 03 00 00 00 01 84 0A", "TCP recv error: 0",
                                                             "ReadHoldingRegisters failed."}));
            EXPECT_EQ(master.LastTransportFailure(), TransportFailure::ConnectionLost);
        }
        EXPECT_TRUE(master.IsConnected());
        master.Disconnect();
        slave->Signal(SIGTERM);
        EXPECT_EQ(slave->Wait(5000), 0);
    }
}

}  // namespace
#endif
