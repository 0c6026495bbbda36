// kestrel-cli slave as a simulator against libmodbus (Debian's libmodbus, tools/peers/
// slave_libmodbus_client.c): every table seeded and read back, the image file in and out, each
// fault at 100 % as libmodbus meets it on the wire, and one seed giving the same sequence twice.
#include <gtest/gtest.h>

#include "sim/sim_test_support.h"

using namespace slavetest;
using namespace simtest;

namespace {

std::vector<std::string> LibmodbusTcp(uint16_t port, const std::vector<std::string>& ops) {
    std::vector<std::string> argv = {KESTREL_SLAVE_LIBMODBUS_CLIENT, "tcp", std::to_string(port)};
    argv.insert(argv.end(), ops.begin(), ops.end());
    const CommandResult r = RunCommand(argv, 60000);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    return Lines(r.out);
}

std::vector<std::string> LibmodbusRtu(const std::string& device, const std::vector<std::string>& ops) {
    std::vector<std::string> argv = {KESTREL_SLAVE_LIBMODBUS_CLIENT, "rtu", device, "19200", "N"};
    argv.insert(argv.end(), ops.begin(), ops.end());
    const CommandResult r = RunCommand(argv, 60000);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    return Lines(r.out);
}

std::unique_ptr<ChildProcess> TcpSlave(std::vector<std::string> extra, uint16_t& port) {
    std::vector<std::string> args = {"--lang", "en", "slave", "--tcp-port", "0"};
    args.insert(args.end(), extra.begin(), extra.end());
    auto slave = std::make_unique<ChildProcess>(Cli(args));
    port = AnnouncedPort(*slave);
    return slave;
}

TEST(SlaveSimulatorLibmodbus, EveryTableSeededAndTheImageKeptAndReplayed) {
    const std::string dir = MakeTempDir();
    WriteText(dir + "/device.image",
              "coil;1;1\ndiscrete;0;1\ndiscrete;3;1\ninput;118;0x4366\ninput;119;0x2000\n"
              "holding;100;0x41C8\n");
    uint16_t port = 0;
    auto slave = TcpSlave({"--image", dir + "/device.image", "--input", "200=7,8", "--discrete", "10=1", "--save-image",
                           dir + "/saved.image"},
                          port);
    ASSERT_NE(port, 0) << slave->Stderr();
    EXPECT_EQ(LibmodbusTcp(port, {"rc:0:3", "rd:0:4", "rd:10:1", "ri:118:2", "ri:200:2", "rh:100:2", "wr:101:9",
                                  "wcs:1:0,1", "rh:100:2", "rc:0:3"}),
              (std::vector<std::string>{"rc 0 0 1 0", "rd 0 1 0 0 1", "rd 10 1", "ri 118 17254 8192", "ri 200 7 8",
                                        "rh 100 16840 0", "wr 101 ok", "wcs 1 ok", "rh 100 16840 9", "rc 0 0 0 1"}));
    slave->Signal(SIGTERM);
    EXPECT_EQ(slave->Wait(5000), 0);
    const std::string saved = ReadText(dir + "/saved.image");
    EXPECT_EQ(saved,
              "coil;2;1\ndiscrete;0;1\ndiscrete;3;1\ndiscrete;10;1\ninput;118;17254\ninput;119;8192\n"
              "input;200;7\ninput;201;8\nholding;100;16840\nholding;101;9\n");

    auto replay = TcpSlave({"--image", dir + "/saved.image"}, port);
    ASSERT_NE(port, 0);
    EXPECT_EQ(LibmodbusTcp(port, {"rc:0:3", "rd:10:1", "ri:200:2", "rh:100:2"}),
              (std::vector<std::string>{"rc 0 0 0 1", "rd 10 1", "ri 200 7 8", "rh 100 16840 9"}));
    replay->Signal(SIGTERM);
    EXPECT_EQ(replay->Wait(5000), 0);
    RunCommand({"rm", "-rf", dir}, 5000);
}

TEST(SlaveSimulatorLibmodbus, EachTcpFaultAtFullShare) {
    const std::vector<std::tuple<std::string, std::string>> cases = {
        {"silence:100", "rh 0 error Connection timed out"},
        {"drop:100", "rh 0 error Connection reset by peer"},
        {"wrong-tid:100", "rh 0 error Invalid data"},
        // libmodbus does not compare the unit id of a TCP response: it takes the values.
        {"wrong-unit:100", "rh 0 5"},
    };
    for (const auto& [fault, expected] : cases) {
        uint16_t port = 0;
        auto slave = TcpSlave({"--holding", "0=5", "--fault", fault, "--seed", "1"}, port);
        ASSERT_NE(port, 0);
        // A short wait only where nothing is to come; a loaded machine gets time for the rest.
        const std::string wait = fault.rfind("silence", 0) == 0 ? "300" : "3000";
        EXPECT_EQ(LibmodbusTcp(port, {"timeout:" + wait, "rh:0:1"}), (std::vector<std::string>{"timeout " + wait, expected}))
            << fault;
        const std::string name = fault.substr(0, fault.find(':'));
        ASSERT_TRUE(slave->WaitForOutput("Fault: " + name + " unit=1 fc=3 address=0 tid=", 3000)) << slave->Stdout();
        slave->Signal(SIGTERM);
        EXPECT_EQ(slave->Wait(5000), 0);
    }
}

TEST(SlaveSimulatorLibmodbus, EachRtuFaultAtFullShare) {
    const std::vector<std::tuple<std::string, std::string>> cases = {
        {"bad-crc:100", "rh 0 error Invalid CRC"},
        {"wrong-unit:100", "rh 0 error Response not from requested slave"},
        {"silence:100", "rh 0 error Connection timed out"},
    };
    for (const auto& [fault, expected] : cases) {
        PtyPair pty;
        ASSERT_TRUE(pty.Ok());
        ChildProcess slave(Cli({"--lang", "en", "slave", "--rtu", pty.A(), "--baud", "19200", "--holding", "0=5",
                                "--fault", fault, "--seed", "1"}));
        ASSERT_TRUE(slave.WaitForOutput("Slave RTU thread started.\n", 5000));
        const std::string wait = fault.rfind("silence", 0) == 0 ? "300" : "3000";
        EXPECT_EQ(LibmodbusRtu(pty.B(), {"timeout:" + wait, "rh:0:1"}),
                  (std::vector<std::string>{"timeout " + wait, expected}))
            << fault;
        ASSERT_TRUE(slave.WaitForOutput("Fault: " + fault.substr(0, fault.find(':')) + " unit=1 fc=3 address=0", 3000));
        slave.Signal(SIGTERM);
        EXPECT_EQ(slave.Wait(6000), 0);
    }
}

TEST(SlaveSimulatorLibmodbus, ThirtyPercentWithOneSeedTwice) {
    // Faults that answer, so that no wait decides the outcome on a loaded machine.
    std::vector<std::string> ops = {"timeout:3000"};
    for (int i = 0; i < 30; ++i) ops.push_back("rh:0:1");
    std::vector<std::vector<std::string>> runs;
    for (int run = 0; run < 2; ++run) {
        uint16_t port = 0;
        auto slave = TcpSlave({"--holding", "0=5", "--fault", "wrong-tid:30", "--seed", "30"}, port);
        ASSERT_NE(port, 0);
        std::vector<std::string> seen = LibmodbusTcp(port, ops);
        slave->Signal(SIGTERM);
        EXPECT_EQ(slave->Wait(5000), 0);
        for (const std::string& line : FaultLines(slave->Stdout())) seen.push_back(line);
        runs.push_back(seen);
    }
    EXPECT_EQ(runs[0], runs[1]);
    const auto failures = std::count(runs[0].begin(), runs[0].begin() + 31, "rh 0 error Invalid data");
    EXPECT_EQ(static_cast<size_t>(failures), runs[0].size() - 31);  // one "Fault: " line for each
    EXPECT_GT(failures, 3);
    EXPECT_LT(failures, 18);
}

}  // namespace
