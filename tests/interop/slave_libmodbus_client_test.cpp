// Kestrel's slave (kestrel-cli slave) against a libmodbus master, over TCP on loopback and over
// RTU on a socat pty pair: reads of the seeded image, every write with a read-back, and the
// exceptions that injection produces.
#include <gtest/gtest.h>

#include "slave_interop_support.h"

using namespace slavetest;

namespace {

class SlaveLibmodbusClientTest : public ::testing::TestWithParam<Transport> {};

CommandResult RunClient(KestrelSlave& slave, Transport transport, const std::vector<std::string>& ops) {
    std::vector<std::string> argv = {KESTREL_SLAVE_LIBMODBUS_CLIENT};
    if (transport == Transport::Tcp) {
        argv.insert(argv.end(), {"tcp", std::to_string(slave.Port())});
    } else {
        argv.insert(argv.end(), {"rtu", slave.PeerDevice(), "19200", "N"});
    }
    argv.insert(argv.end(), ops.begin(), ops.end());
    return RunCommand(argv, 60000);
}

TEST_P(SlaveLibmodbusClientTest, ReadsWritesAndInjectedExceptions) {
    KestrelSlave slave(GetParam());
    ASSERT_TRUE(slave.Ready()) << slave.Output();
    const CommandResult result =
        RunClient(slave, GetParam(),
                  {"rh:0:3", "rc:0:3", "wr:5:500", "rh:5:1", "wrs:10:1,2,65535", "rh:10:3", "wc:7:1", "rc:7:1",
                   "wcs:20:1,0,1,1,0,0,0,0,1", "rc:20:9", "ri:0:2", "rd:0:2", "rh:150:1", "wr:100:1", "wcs:199:1",
                   "rh:200:1"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const std::vector<std::string> expected = {
        "rh 0 11 22 33", "rc 0 1 0 1",         "wr 5 ok",          "rh 5 500",
        "wrs 10 ok",     "rh 10 1 2 65535",    "wc 7 ok",          "rc 7 1",
        "wcs 20 ok",     "rc 20 1 0 1 1 0 0 0 0 1", "ri 0 0 0",    "rd 0 0 0",
        "rh 150 exception 4", "wr 100 exception 4", "wcs 199 exception 4", "rh 200 0"};
    EXPECT_EQ(OutputLines(result.out), expected);

    ASSERT_TRUE(slave.Logged("Slave: FC03 read from 200, n=1"));
    EXPECT_EQ(slave.Stop(), 0);
    const std::vector<std::string> lines = OutputLines(slave.Output());
    for (const char* line : {"Slave: FC03 read from 0, n=3", "Slave: FC01 Coils read from 0, n=3",
                             "Slave: FC06 Register 5 = 500", "Slave: FC10 written from 10, n=3",
                             "Slave: FC05 Coil 7 = ON", "Slave: FC0F 9 Coils from 20"}) {
        EXPECT_NE(std::find(lines.begin(), lines.end(), line), lines.end()) << line;
    }
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines.back(), "Disconnected.");
}

INSTANTIATE_TEST_SUITE_P(Transports, SlaveLibmodbusClientTest, ::testing::Values(Transport::Tcp, Transport::Rtu),
                         TransportName);

}  // namespace
