// Kestrel's slave (kestrel-cli slave) against mbpoll, as a user would type both, over TCP on
// loopback and over RTU on a socat pty pair: reads of the seeded image, writes with a read-back,
// and the exception that injection produces (mbpoll exits 1 and names it).
#include <gtest/gtest.h>

#include "slave_interop_support.h"

using namespace slavetest;

namespace {

class SlaveMbpollTest : public ::testing::TestWithParam<Transport> {
protected:
    void SetUp() override {
        if (!HaveProgram("mbpoll")) GTEST_SKIP() << "mbpoll is not installed";
    }
};

// mbpoll with 0-based references, one poll; `type` 0 = coils, 4 = holding registers.
CommandResult Mbpoll(KestrelSlave& slave, Transport transport, int type, int reference, int count,
                     const std::vector<std::string>& values = {}) {
    std::vector<std::string> argv = {"mbpoll", "-a", "1", "-0", "-1", "-t", std::to_string(type), "-r",
                                     std::to_string(reference)};
    if (values.empty()) argv.insert(argv.end(), {"-c", std::to_string(count)});
    if (transport == Transport::Tcp) {
        argv.insert(argv.end(), {"-m", "tcp", "-p", std::to_string(slave.Port()), "127.0.0.1"});
    } else {
        argv.insert(argv.end(), {"-m", "rtu", "-b", "19200", "-P", "none", slave.PeerDevice()});
    }
    argv.insert(argv.end(), values.begin(), values.end());
    return RunCommand(argv, 30000);
}

// The values of mbpoll's "[ref]: <tab>value" lines, in order.
std::vector<std::string> Values(const std::string& out) {
    std::vector<std::string> values;
    for (const std::string& line : OutputLines(out)) {
        if (line.empty() || line[0] != '[') continue;
        const size_t tab = line.find('\t');
        if (tab != std::string::npos) values.push_back(line.substr(tab + 1));
    }
    return values;
}

TEST_P(SlaveMbpollTest, ReadsWritesAndInjectedExceptions) {
    const Transport transport = GetParam();
    KestrelSlave slave(transport);
    ASSERT_TRUE(slave.Ready()) << slave.Output();

    CommandResult r = Mbpoll(slave, transport, 4, 0, 3);
    EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
    EXPECT_EQ(Values(r.out), (std::vector<std::string>{"11", "22", "33"}));
    r = Mbpoll(slave, transport, 0, 0, 3);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(Values(r.out), (std::vector<std::string>{"1", "0", "1"}));

    r = Mbpoll(slave, transport, 4, 5, 1, {"1234"});  // FC06
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("Written 1 references."), std::string::npos) << r.out;
    r = Mbpoll(slave, transport, 4, 10, 3, {"7", "8", "9"});  // FC16
    EXPECT_EQ(r.exitCode, 0) << r.err;
    r = Mbpoll(slave, transport, 4, 5, 8);
    EXPECT_EQ(Values(r.out), (std::vector<std::string>{"1234", "0", "0", "0", "0", "7", "8", "9"}));

    r = Mbpoll(slave, transport, 0, 30, 1, {"1"});  // FC05
    EXPECT_EQ(r.exitCode, 0) << r.err;
    r = Mbpoll(slave, transport, 0, 40, 3, {"1", "1", "0"});  // FC15
    EXPECT_EQ(r.exitCode, 0) << r.err;
    r = Mbpoll(slave, transport, 0, 30, 1);
    EXPECT_EQ(Values(r.out), std::vector<std::string>{"1"});
    r = Mbpoll(slave, transport, 0, 40, 3);
    EXPECT_EQ(Values(r.out), (std::vector<std::string>{"1", "1", "0"}));

    r = Mbpoll(slave, transport, 4, 120, 2);
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("Slave device or server failure"), std::string::npos) << r.out << r.err;
    r = Mbpoll(slave, transport, 4, 100, 1, {"5"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("Slave device or server failure"), std::string::npos) << r.out << r.err;

    EXPECT_EQ(slave.Stop(), 0);
    const std::vector<std::string> log = OutputLines(slave.Output());
    for (const char* line : {"Slave: FC03 read from 0, n=3", "Slave: FC06 Register 5 = 1234",
                             "Slave: FC10 written from 10, n=3", "Slave: FC05 Coil 30 = ON",
                             "Slave: FC0F 3 Coils from 40", "Slave: FC03 read from 5, n=8"}) {
        EXPECT_NE(std::find(log.begin(), log.end(), line), log.end()) << line;
    }
    ASSERT_GE(log.size(), 2u);
    EXPECT_EQ(log[log.size() - 2], transport == Transport::Tcp ? "Slave TCP thread stopped." : "Slave RTU thread stopped.");
    EXPECT_EQ(log.back(), "Disconnected.");
}

INSTANTIATE_TEST_SUITE_P(Transports, SlaveMbpollTest, ::testing::Values(Transport::Tcp, Transport::Rtu), TransportName);

}  // namespace
