// Our own master (ModbusClient) against kestrel-cli slave playing each fault at 100 %. The master
// does not compare a response's transaction id, unit id or CRC with its request, so a wrong unit,
// a wrong transaction id and a bad CRC reach the caller as a success with the device's values (the
// trace marks the CRC); silence and a drop fail the transaction with the operation's failure line.
// No fault disconnects the master: its connection stays up, and a drop shows as the receive error
// of the closed stream.
#include <gtest/gtest.h>

#if !defined(_WIN32)
#include <chrono>
#include <memory>
#include <thread>

#include "protocol/trace_log.h"
#include "sim/sim_test_support.h"

using namespace slavetest;
using namespace simtest;

namespace {

class MasterAgainstFaults : public ::testing::Test {
protected:
    void SetUp() override { SetEnglish(true); }

    // Starts the TCP slave with the fault and connects the master to it.
    void StartTcp(const std::string& fault) {
        slave = std::make_unique<ChildProcess>(Cli({"--lang", "en", "slave", "--tcp-port", "0", "--holding",
                                                    "0=0x1234,0x5678", "--fault", fault, "--seed", "11"}));
        const uint16_t port = AnnouncedPort(*slave);
        ASSERT_NE(port, 0);
        ConnectionConfig config;
        config.ipAddress = "127.0.0.1";
        config.port = port;
        ASSERT_TRUE(master.Connect(config));
        log.Clear();
    }

    std::unique_ptr<ChildProcess> slave;
    ModbusClient master;
    LogCapture log{master};
};

TEST_F(MasterAgainstFaults, SilenceFailsTheReadAndKeepsTheConnection) {
    StartTcp("silence:100");
    std::vector<uint16_t> values;
    EXPECT_FALSE(master.ReadHoldingRegisters(1, 0, 2, values));
    // The master waits up to 3 s; the slave's own idle rule ends the silent client after 500 ms,
    // so the master's receive ends with the closed stream.
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{"TX: 00 00 00 00 00 06 01 03 00 00 00 02", "TCP recv error: 0",
                                                     "ReadHoldingRegisters failed."}));
    EXPECT_TRUE(master.IsConnected());
    ASSERT_TRUE(slave->WaitForOutput("Fault: silence unit=1 fc=3 address=0 tid=0\n", 3000));
}

TEST_F(MasterAgainstFaults, ADropFailsTheReadAndIsReportedAsTheClosedStream) {
    StartTcp("drop:100");
    std::vector<uint16_t> values;
    EXPECT_FALSE(master.ReadHoldingRegisters(1, 0, 2, values));
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{"TX: 00 00 00 00 00 06 01 03 00 00 00 02", "TCP recv error: 0",
                                                     "ReadHoldingRegisters failed."}));
    EXPECT_TRUE(master.IsConnected());
    // The next operation on the dropped connection fails too; only a new Connect brings it back.
    log.Clear();
    EXPECT_FALSE(master.WriteSingleRegister(1, 0, 1));
    EXPECT_EQ(log.Lines().back(), "WriteSingleRegister failed.");
    ASSERT_TRUE(slave->WaitForOutput("Fault: drop unit=1 fc=3 address=0 tid=0\n", 3000));
}

TEST_F(MasterAgainstFaults, AWrongUnitIsTakenAsItStands) {
    StartTcp("wrong-unit:100");
    std::vector<uint16_t> values;
    EXPECT_TRUE(master.ReadHoldingRegisters(1, 0, 2, values));
    EXPECT_EQ(values, (std::vector<uint16_t>{0x1234, 0x5678}));
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{"TX: 00 00 00 00 00 06 01 03 00 00 00 02", "RX: 00 00 00 00 00 07",
                                                     "RX: 02 03 04 12 34 56 78"}));
    EXPECT_TRUE(master.IsConnected());
}

TEST_F(MasterAgainstFaults, AWrongTransactionIdIsTakenAsItStands) {
    StartTcp("wrong-tid:100");
    std::vector<uint16_t> values;
    EXPECT_TRUE(master.ReadHoldingRegisters(1, 0, 2, values));
    EXPECT_EQ(values, (std::vector<uint16_t>{0x1234, 0x5678}));
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{"TX: 00 00 00 00 00 06 01 03 00 00 00 02", "RX: 80 00 00 00 00 07",
                                                     "RX: 01 03 04 12 34 56 78"}));
    // The connection goes on: the next transaction runs normally (and meets the fault again).
    EXPECT_TRUE(master.WriteSingleRegister(1, 0, 7));
    EXPECT_TRUE(master.IsConnected());
}

// Over RTU (a socat pty pair): a bad CRC and a wrong unit are read as they stand (the trace marks
// the CRC), silence fails the read after the read time-out with no "RTU recv error." line.
TEST_F(MasterAgainstFaults, RtuFaults) {
    for (const std::string fault : {"bad-crc:100", "wrong-unit:100", "silence:100"}) {
        PtyPair pty;
        ASSERT_TRUE(pty.Ok());
        ChildProcess rtuSlave(Cli({"--lang", "en", "slave", "--rtu", pty.A(), "--baud", "19200", "--holding",
                                   "0=0x1234,0x5678", "--fault", fault, "--seed", "4"}));
        ASSERT_TRUE(rtuSlave.WaitForOutput("Slave RTU thread started.\n", 5000));
        ModbusClient rtuMaster;
        LogCapture rtuLog(rtuMaster);
        ConnectionConfig config;
        config.transport = 1;
        config.serialPort = pty.B();
        config.baudRate = 19200;
        ASSERT_TRUE(rtuMaster.Connect(config));
        GlobalTraceLog().Clear();
        rtuLog.Clear();
        std::vector<uint16_t> values;
        const bool ok = rtuMaster.ReadHoldingRegisters(1, 0, 2, values);
        const auto frames = GlobalTraceLog().Snapshot();
        ASSERT_EQ(frames.size(), 1u) << fault;
        if (fault == "silence:100") {
            EXPECT_FALSE(ok);
            EXPECT_EQ(rtuLog.Lines(),
                      (std::vector<std::string>{"TX: 01 03 00 00 00 02 C4 0B", "ReadHoldingRegisters failed."}));
            EXPECT_TRUE(frames.back().isTimeout);
        } else {
            EXPECT_TRUE(ok) << fault;  // the master compares neither the CRC nor the unit id ...
            EXPECT_EQ(values, (std::vector<uint16_t>{0x1234, 0x5678}));
            const std::string rx = fault == "bad-crc:100"
                                       ? "RX: 01 03 04 12 34 56 78 7E F8"
                                       : "RX: " + HexDump(BuildRtuRequest(2, 3, Hex("04 12 34 56 78")));
            EXPECT_EQ(rtuLog.Lines(), (std::vector<std::string>{"TX: 01 03 00 00 00 02 C4 0B", rx}));
            EXPECT_EQ(frames.back().isCrcError, fault == "bad-crc:100");  // ... but the trace marks a bad CRC
        }
        EXPECT_TRUE(rtuMaster.IsConnected());
        ASSERT_TRUE(
            rtuSlave.WaitForOutput("Fault: " + fault.substr(0, fault.find(':')) + " unit=1 fc=3 address=0", 3000));
        rtuMaster.Disconnect();
        rtuSlave.Signal(SIGTERM);
        EXPECT_EQ(rtuSlave.Wait(6000), 0);
    }
}

}  // namespace
#endif
