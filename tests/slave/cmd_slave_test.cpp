// kestrel-cli slave as a user runs it: seeded image, log lines on stdout, stop by signal or
// --duration with the closing lines, exit codes 1 (cannot serve) and 2 (usage).
#include <gtest/gtest.h>

#if !defined(_WIN32)
#include <algorithm>

#include "slave/slave_process.h"
#include "slave/slave_test_support.h"
#include "support/serial_pair.h"
#include "support/text_lines.h"

using namespace slavetest;

namespace {

std::vector<std::string> Cli(std::vector<std::string> args) {
    args.insert(args.begin(), KESTREL_CLI_PATH);
    return args;
}

std::string LastLines(const std::string& text, size_t n) {
    const std::vector<std::string> lines = SplitLines(text);
    std::string out;
    for (size_t i = lines.size() > n ? lines.size() - n : 0; i < lines.size(); ++i) out += lines[i] + "\n";
    return out;
}

TEST(CmdSlaveTest, ServesTheSeededImageAndStopsOnSigterm) {
    ChildProcess slave(Cli({"--lang", "en", "slave", "--tcp-port", "0", "--holding", "10=100,200,0x12C",
                            "--holding", "65535=7,8", "--coils", "3=1,0,1"}));
    const uint16_t port = AnnouncedPort(slave);
    ASSERT_NE(port, 0) << slave.Stderr();
    {
        TestClient client(port);
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 01 00 00 00 06 01 03 00 0A 00 03"))),
                  "00 01 00 00 00 09 01 03 06 00 64 00 C8 01 2C");
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 02 00 00 00 06 01 03 FF FF 00 02"))),
                  "00 02 00 00 00 07 01 03 04 00 07 00 08");  // the block wrapped to address 0
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 03 00 00 00 06 01 01 00 03 00 03"))), "00 03 00 00 00 04 01 01 01 05");
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 04 00 00 00 06 01 05 00 04 FF 00"))),
                  "00 04 00 00 00 06 01 05 00 04 FF 00");
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 05 00 00 00 06 01 01 00 03 00 03"))), "00 05 00 00 00 04 01 01 01 07");
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 06 00 00 00 06 01 06 00 0B 00 05"))),
                  "00 06 00 00 00 06 01 06 00 0B 00 05");
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 07 00 00 00 06 01 03 00 0B 00 01"))), "00 07 00 00 00 05 01 03 02 00 05");
    }
    ASSERT_TRUE(slave.WaitForOutput("Client disconnected.\n", 3000));
    slave.Signal(SIGTERM);
    EXPECT_EQ(slave.Wait(5000), 0);
    const std::vector<std::string> lines = SplitLines(slave.Stdout());
    ASSERT_GE(lines.size(), 4u);
    EXPECT_EQ(lines[0], "Slave listening on port 0 ...");
    for (const char* expected : {"Connected.", "Slave TCP thread started.", "Client connected: 127.0.0.1",
                                 "RX: 00 01 00 00 00 06", "RX: 01 03 00 0A 00 03",
                                 "TX: 00 01 00 00 00 09 01 03 06 00 64 00 C8 01 2C", "Slave: FC03 read from 10, n=3",
                                 "Slave: FC01 Coils read from 3, n=3", "Slave: FC05 Coil 4 = ON",
                                 "Slave: FC06 Register 11 = 5"}) {
        EXPECT_NE(std::find(lines.begin(), lines.end(), expected), lines.end()) << expected;
    }
    EXPECT_EQ(LastLines(slave.Stdout(), 3), "Client disconnected.\nSlave TCP thread stopped.\nDisconnected.\n");
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Disconnected."), 1);
    EXPECT_EQ(slave.Stderr(), "kestrel-cli: slave listening on port " + std::to_string(port) + "\n");
}

TEST(CmdSlaveTest, SigintStopsAGermanSlave) {
    ChildProcess slave(Cli({"--lang", "de", "slave", "--tcp-port", "0"}));
    const uint16_t port = AnnouncedPort(slave);
    ASSERT_NE(port, 0);
    {
        TestClient client(port);
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 01 00 00 00 06 01 03 00 00 00 01"))), "00 01 00 00 00 05 01 03 02 00 00");
        ASSERT_TRUE(slave.WaitForOutput("Slave: FC03 gelesen ab 0, n=1\n", 3000));
        // The stop comes while this client is still connected.
        slave.Signal(SIGINT);
        EXPECT_EQ(slave.Wait(5000), 0);
    }
    const std::vector<std::string> lines = SplitLines(slave.Stdout());
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0], "Slave lauscht auf Port 0 ...");
    EXPECT_EQ(LastLines(slave.Stdout(), 3), "Client getrennt.\nSlave TCP-Thread beendet.\nGetrennt.\n");
}

TEST(CmdSlaveTest, DurationEndsTheServerByItself) {
    const int64_t start = NowMs();
    const CommandResult result = RunCommand(Cli({"--lang", "en", "slave", "--tcp-port", "0", "--duration", "1"}), 10000);
    const int64_t elapsed = NowMs() - start;
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_GE(elapsed, 900);
    EXPECT_LE(elapsed, 5000);
    EXPECT_EQ(LastLines(result.out, 2), "Slave TCP thread stopped.\nDisconnected.\n");
}

TEST(CmdSlaveTest, InjectionDelayAndUnit) {
    ChildProcess slave(Cli({"--lang", "en", "slave", "--tcp-port", "0", "--unit", "9", "--inject", "3:5-6", "--delay",
                            "200", "--holding", "7=33"}));
    const uint16_t port = AnnouncedPort(slave);
    ASSERT_NE(port, 0);
    TestClient client(port);
    int64_t start = NowMs();
    EXPECT_EQ(ToHex(client.Exchange(Hex("00 01 00 00 00 06 09 03 00 05 00 01"))), "00 01 00 00 00 03 09 83 03");
    EXPECT_GE(NowMs() - start, 180);
    EXPECT_EQ(ToHex(client.Exchange(Hex("00 03 00 00 00 09 09 10 00 06 00 01 02 00 01"))), "00 03 00 00 00 03 09 90 03");
    start = NowMs();
    EXPECT_EQ(ToHex(client.Exchange(Hex("00 04 00 00 00 06 09 03 00 07 00 01"))), "00 04 00 00 00 05 09 03 02 00 21");
    EXPECT_GE(NowMs() - start, 180);
    ASSERT_TRUE(client.Send(Hex("00 05 00 00 00 06 01 03 00 07 00 01")));  // unit 1 is not this slave
    EXPECT_EQ(client.Await(300), TestClient::Result::Silent);
    slave.Signal(SIGTERM);
    EXPECT_EQ(slave.Wait(5000), 0);
}

TEST(CmdSlaveTest, APortThatCannotBeBoundExitsWithOne) {
    const SOCKET holder = platform::TcpSocket();
    ASSERT_TRUE(platform::BindAny(holder, 0));
    ASSERT_TRUE(platform::Listen(holder, 1));
    const uint16_t port = platform::LocalPort(holder);
    const CommandResult result = RunCommand(Cli({"--lang", "en", "slave", "--tcp-port", std::to_string(port)}), 10000);
    platform::CloseSocket(holder);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "Bind failed: " + std::to_string(EADDRINUSE) + "\n");
}

TEST(CmdSlaveTest, ADeviceThatCannotBeOpenedExitsWithOne) {
    CommandResult result = RunCommand(Cli({"--lang", "en", "slave", "--rtu", "/dev/kestrel-no-such-port"}), 10000);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "Opening /dev/kestrel-no-such-port @ 9600 Baud (Slave) ...\nCould not open serial port.\n");
    result = RunCommand(Cli({"slave", "--rtu", "/dev/kestrel-no-such-port", "--baud", "19200"}), 10000);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out,
              "Oeffne /dev/kestrel-no-such-port @ 19200 Baud (Slave) ...\nSeriellen Port konnte nicht geoeffnet werden.\n");
}

TEST(CmdSlaveTest, ServesRtuOnAPseudoTerminal) {
    SerialPair pair;
    ASSERT_TRUE(pair.Ok());
    ChildProcess slave(Cli({"--lang", "en", "slave", "--rtu", pair.DeviceName(), "--baud", "19200", "--parity", "E",
                            "--holding", "0=0x1234,0x5678"}));
    ASSERT_TRUE(slave.WaitForOutput("Slave RTU thread started.\n", 5000)) << slave.Stdout();
    ASSERT_TRUE(pair.Write(Hex("01 03 00 00 00 02 C4 0B")));
    EXPECT_EQ(ToHex(pair.ReadFrame(3000)), "01 03 04 12 34 56 78 81 07");
    ASSERT_TRUE(slave.WaitForOutput("Slave: FC03 read from 0, n=2\n", 3000));
    slave.Signal(SIGTERM);
    EXPECT_EQ(slave.Wait(5000), 0);
    const std::vector<std::string> lines = SplitLines(slave.Stdout());
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[0], "Opening " + pair.DeviceName() + " @ 19200 Baud (Slave) ...");
    EXPECT_EQ(LastLines(slave.Stdout(), 2), "Slave RTU thread stopped.\nDisconnected.\n");
}

TEST(CmdSlaveTest, UsageErrorsExitWithTwoAndOneMessageLine) {
    const std::vector<std::vector<std::string>> cases = {
        {"slave"},
        {"slave", "--tcp-port", "1502", "--rtu", "/dev/ttyS0"},
        {"slave", "--tcp-port", "70000"},
        {"slave", "--tcp-port"},
        {"slave", "--tcp-port", "1502", "--inject", "2"},
        {"slave", "--tcp-port", "1502", "--inject", "2:9-3"},
        {"slave", "--tcp-port", "1502", "--inject", "x:1-3"},
        {"slave", "--tcp-port", "1502", "--coils", "0=2"},
        {"slave", "--tcp-port", "1502", "--coils", "0"},
        {"slave", "--tcp-port", "1502", "--holding", "0=70000"},
        {"slave", "--tcp-port", "1502", "--holding", "=1"},
        {"slave", "--tcp-port", "1502", "--holding", "0=1,,2"},
        {"slave", "--tcp-port", "1502", "--unit", "256"},
        {"slave", "--tcp-port", "1502", "--delay", "-1"},
        {"slave", "--tcp-port", "1502", "--duration", "0"},
        {"slave", "--tcp-port", "1502", "--bogus"},
        {"slave", "--tcp-port", "1502", "stray"},
        {"slave", "--rtu", "/dev/ttyS0", "--parity", "X"},
        {"slave", "--rtu", "/dev/ttyS0", "--stop-bits", "3"},
    };
    for (const auto& args : cases) {
        const CommandResult result = RunCommand(Cli(args), 10000);
        std::string command;
        for (const auto& a : args) command += a + " ";
        EXPECT_EQ(result.exitCode, 2) << command;
        EXPECT_EQ(result.out, "") << command;
        const std::vector<std::string> err = SplitLines(result.err);
        ASSERT_FALSE(err.empty()) << command;
        EXPECT_EQ(err[0].rfind("kestrel-cli: ", 0), 0u) << command << ": " << err[0];
        EXPECT_EQ(err.size() > 1 ? err[1] : "", "usage:") << command;
    }
}

TEST(CmdSlaveTest, UsageListsTheSlaveCommand) {
    const CommandResult result = RunCommand(Cli({"--help"}), 10000);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_NE(result.out.find("slave (--tcp-port P | --rtu DEVICE"), std::string::npos) << result.out;
}

}  // namespace
#endif
