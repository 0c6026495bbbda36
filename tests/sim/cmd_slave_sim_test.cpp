// kestrel-cli slave as a simulator, as a user runs it: all four tables seeded, the image file in
// and out, each fault on the wire, the seeded sequence, and today's session unchanged without
// fault options.
#include <gtest/gtest.h>

#if !defined(_WIN32)
#include "sim/sim_test_support.h"
#include "support/serial_pair.h"

using namespace slavetest;
using namespace simtest;

namespace {

// A fixed session, and what kestrel-cli slave sent and printed for it before the simulator
// existed (recorded from that build): every function code, an unknown one, an injected
// exception, a foreign unit and unit 0.
const std::vector<std::pair<std::string, std::string>> kSession = {
    {"00 01 00 00 00 06 01 03 00 00 00 03", "00 01 00 00 00 09 01 03 06 00 01 00 02 00 03"},
    {"00 02 00 00 00 06 01 01 00 00 00 03", "00 02 00 00 00 04 01 01 01 05"},
    {"00 03 00 00 00 06 01 06 00 05 00 2A", "00 03 00 00 00 06 01 06 00 05 00 2A"},
    {"00 04 00 00 00 09 01 10 00 0A 00 01 02 00 07", "00 04 00 00 00 06 01 10 00 0A 00 01"},
    {"00 05 00 00 00 06 01 05 00 02 00 00", "00 05 00 00 00 06 01 05 00 02 00 00"},
    {"00 06 00 00 00 08 01 0F 00 00 00 03 01 05", "00 06 00 00 00 06 01 0F 00 00 00 03"},
    {"00 07 00 00 00 06 01 02 00 00 00 08", "00 07 00 00 00 04 01 02 01 00"},
    {"00 08 00 00 00 06 01 04 00 00 00 02", "00 08 00 00 00 07 01 04 04 00 00 00 00"},
    {"00 09 00 00 00 02 01 2B", "00 09 00 00 00 03 01 AB 01"},
    {"00 0A 00 00 00 06 01 03 03 84 00 01", "00 0A 00 00 00 03 01 83 02"},
    {"00 0B 00 00 00 06 02 03 00 00 00 01", ""},
    {"00 0C 00 00 00 06 00 03 00 00 00 01", "00 0C 00 00 00 05 00 03 02 00 01"},
};

const char* const kSessionLog =
    "Slave listening on port 0 ...\nConnected.\nSlave TCP thread started.\nClient connected: 127.0.0.1\n"
    "RX: 00 01 00 00 00 06\nRX: 01 03 00 00 00 03\nTX: 00 01 00 00 00 09 01 03 06 00 01 00 02 00 03\n"
    "Slave: FC03 read from 0, n=3\n"
    "RX: 00 02 00 00 00 06\nRX: 01 01 00 00 00 03\nTX: 00 02 00 00 00 04 01 01 01 05\n"
    "Slave: FC01 Coils read from 0, n=3\n"
    "RX: 00 03 00 00 00 06\nRX: 01 06 00 05 00 2A\nTX: 00 03 00 00 00 06 01 06 00 05 00 2A\n"
    "Slave: FC06 Register 5 = 42\n"
    "RX: 00 04 00 00 00 09\nRX: 01 10 00 0A 00 01 02 00 07\nTX: 00 04 00 00 00 06 01 10 00 0A 00 01\n"
    "Slave: FC10 written from 10, n=1\n"
    "RX: 00 05 00 00 00 06\nRX: 01 05 00 02 00 00\nTX: 00 05 00 00 00 06 01 05 00 02 00 00\n"
    "Slave: FC05 Coil 2 = OFF\n"
    "RX: 00 06 00 00 00 08\nRX: 01 0F 00 00 00 03 01 05\nTX: 00 06 00 00 00 06 01 0F 00 00 00 03\n"
    "Slave: FC0F 3 Coils from 0\n"
    "RX: 00 07 00 00 00 06\nRX: 01 02 00 00 00 08\nTX: 00 07 00 00 00 04 01 02 01 00\n"
    "RX: 00 08 00 00 00 06\nRX: 01 04 00 00 00 02\nTX: 00 08 00 00 00 07 01 04 04 00 00 00 00\n"
    "RX: 00 09 00 00 00 02\nRX: 01 2B\nSlave: Unknown FC 0x2b -> Exception\nTX: 00 09 00 00 00 03 01 AB 01\n"
    "RX: 00 0A 00 00 00 06\nRX: 01 03 03 84 00 01\nTX: 00 0A 00 00 00 03 01 83 02\n"
    "RX: 00 0B 00 00 00 06\nRX: 02 03 00 00 00 01\n"
    "RX: 00 0C 00 00 00 06\nRX: 00 03 00 00 00 01\nTX: 00 0C 00 00 00 05 00 03 02 00 01\n"
    "Slave: FC03 read from 0, n=1\n"
    "TCP recv error: 0\nClient disconnected.\nSlave TCP thread stopped.\nDisconnected.\n";

void RunFixedSession(const std::vector<std::string>& extra) {
    std::vector<std::string> args = {"--lang",    "en",      "slave",   "--tcp-port", "0",        "--unit",   "1",
                                     "--holding", "0=1,2,3", "--coils", "0=1,0,1",    "--inject", "2:900-901"};
    args.insert(args.end(), extra.begin(), extra.end());
    ChildProcess slave(Cli(args));
    const uint16_t port = AnnouncedPort(slave);
    ASSERT_NE(port, 0) << slave.Stderr();
    {
        TestClient client(port);
        for (const auto& [request, response] : kSession) {
            if (response.empty()) {
                ASSERT_TRUE(client.Send(Hex(request)));
                EXPECT_EQ(client.Await(300), TestClient::Result::Silent) << request;
            } else {
                EXPECT_EQ(ToHex(client.Exchange(Hex(request))), response) << request;
            }
        }
    }
    ASSERT_TRUE(slave.WaitForOutput("Client disconnected.\n", 3000));
    slave.Signal(SIGTERM);
    EXPECT_EQ(slave.Wait(5000), 0);
    // "Connected." comes from the main thread, "Slave TCP thread started." from the server thread:
    // their order has never been fixed, before the simulator as now. Everything else is.
    std::string out = slave.Stdout();
    const std::string threadFirst = "Slave TCP thread started.\nConnected.\n";
    const size_t at = out.find(threadFirst);
    if (at != std::string::npos) out.replace(at, threadFirst.size(), "Connected.\nSlave TCP thread started.\n");
    EXPECT_EQ(out, kSessionLog);
    EXPECT_EQ(slave.Stderr(), "kestrel-cli: slave listening on port " + std::to_string(port) + "\n");
}

TEST(SlaveSimulatorCli, WithoutFaultOptionsTheSessionIsTodays) {
    RunFixedSession({});
    // A seed alone asks for no fault: still the same session.
    RunFixedSession({"--seed", "5"});
}

TEST(SlaveSimulatorCli, SeedsAndServesAllFourTables) {
    ChildProcess slave(
        Cli({"--lang", "en", "slave", "--tcp-port", "0", "--input", "118=0x4366,0x2000", "--input", "65535=9",
             "--discrete", "1=1,0,1", "--holding", "3=4", "--coils", "0=0,1", "--duration", "20"}));
    const uint16_t port = AnnouncedPort(slave);
    ASSERT_NE(port, 0) << slave.Stderr();
    {
        TestClient client(port);
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 01 00 00 00 06 01 04 00 76 00 02"))),
                  "00 01 00 00 00 07 01 04 04 43 66 20 00");
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 02 00 00 00 06 01 04 FF FF 00 02"))),
                  "00 02 00 00 00 07 01 04 04 00 09 00 00");
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 03 00 00 00 06 01 02 00 00 00 05"))), "00 03 00 00 00 04 01 02 01 0A");
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 04 00 00 00 06 01 03 00 03 00 01"))),
                  "00 04 00 00 00 05 01 03 02 00 04");
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 05 00 00 00 06 01 01 00 00 00 02"))), "00 05 00 00 00 04 01 01 01 02");
    }
    slave.Signal(SIGTERM);
    EXPECT_EQ(slave.Wait(5000), 0);
    EXPECT_TRUE(FaultLines(slave.Stdout()).empty());
}

TEST(SlaveSimulatorCli, ImageInAndSavedImageOut) {
    const std::string dir = MakeTempDir();
    WriteText(
        dir + "/pump.image",
        "# pump P-101\r\ncoil;0;1\r\ndiscrete;2;1\r\ninput;0x76;0x4366\r\n\r\nholding;10;500\r\nholding;11;0\r\n");
    ChildProcess slave(Cli({"--lang", "en", "slave", "--tcp-port", "0", "--image", dir + "/pump.image", "--holding",
                            "12=7", "--save-image", dir + "/after.image"}));
    const uint16_t port = AnnouncedPort(slave);
    ASSERT_NE(port, 0) << slave.Stderr();
    {
        TestClient client(port);
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 01 00 00 00 06 01 04 00 76 00 01"))),
                  "00 01 00 00 00 05 01 04 02 43 66");
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 02 00 00 00 06 01 02 00 00 00 03"))), "00 02 00 00 00 04 01 02 01 04");
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 03 00 00 00 06 01 03 00 0A 00 03"))),
                  "00 03 00 00 00 09 01 03 06 01 F4 00 00 00 07");
        // The session's writes: the saved image keeps them.
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 04 00 00 00 06 01 06 00 0A 00 00"))),
                  "00 04 00 00 00 06 01 06 00 0A 00 00");
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 05 00 00 00 06 01 06 FF FF 12 34"))),
                  "00 05 00 00 00 06 01 06 FF FF 12 34");
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 06 00 00 00 06 01 05 00 05 FF 00"))),
                  "00 06 00 00 00 06 01 05 00 05 FF 00");
    }
    slave.Signal(SIGINT);
    EXPECT_EQ(slave.Wait(5000), 0);
    const std::string saved = ReadText(dir + "/after.image");
    EXPECT_EQ(saved, "coil;0;1\ncoil;5;1\ndiscrete;2;1\ninput;118;17254\nholding;12;7\nholding;65535;4660\n");

    // The saved image replays the device: --duration ends the second run, which saves again.
    ChildProcess again(Cli({"--lang", "en", "slave", "--tcp-port", "0", "--image", dir + "/after.image", "--save-image",
                            dir + "/again.image", "--duration", "1"}));
    const uint16_t port2 = AnnouncedPort(again);
    ASSERT_NE(port2, 0) << again.Stderr();
    {
        TestClient client(port2);
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 01 00 00 00 06 01 03 FF FF 00 01"))),
                  "00 01 00 00 00 05 01 03 02 12 34");
    }
    EXPECT_EQ(again.Wait(8000), 0);
    EXPECT_EQ(ReadText(dir + "/again.image"), saved);
    RunCommand({"rm", "-rf", dir}, 5000);
}

TEST(SlaveSimulatorCli, ImageErrorsAreUsageErrorsNamingTheLine) {
    const std::string dir = MakeTempDir();
    WriteText(dir + "/bad.image", "coil;0;1\n\n# fine so far\nholding;1;65536\n");
    CommandResult r = RunCommand(Cli({"slave", "--tcp-port", "0", "--image", dir + "/bad.image"}), 10000);
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(Lines(r.err)[0], "kestrel-cli: --image " + dir +
                                   "/bad.image: line 4: expected a register value 0..65535 (decimal or 0x "
                                   "hexadecimal), not '65536'");
    r = RunCommand(Cli({"slave", "--tcp-port", "0", "--image", dir + "/none.image"}), 10000);
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(Lines(r.err)[0], "kestrel-cli: --image " + dir + "/none.image: cannot read the file");
    // A saved image that cannot be written: the slave served, but the run failed.
    r = RunCommand(Cli({"--lang", "en", "slave", "--tcp-port", "0", "--duration", "1", "--save-image",
                        dir + "/no/such/dir/x.image"}),
                   10000);
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(Lines(r.err).back(), "kestrel-cli: --save-image " + dir + "/no/such/dir/x.image: cannot write the file");
    RunCommand({"rm", "-rf", dir}, 5000);
}

TEST(SlaveSimulatorCli, UsageErrorsOfTheSimulatorOptions) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--tcp-port", "0", "--fault", "bad-crc:10"},
         "kestrel-cli: --fault bad-crc cannot be played here: only an RTU frame carries a CRC"},
        {{"--rtu", "/dev/ttyS0", "--fault", "drop:10"},
         "kestrel-cli: --fault drop cannot be played here: only a TCP connection can be dropped"},
        {{"--rtu", "/dev/ttyS0", "--fault", "wrong-tid:10"},
         "kestrel-cli: --fault wrong-tid cannot be played here: only a Modbus TCP frame carries a transaction id"},
        {{"--tcp-port", "0", "--fault", "silence:60", "--fault", "drop:41"},
         "kestrel-cli: --fault: the percentages add up to 101, more than 100"},
        {{"--tcp-port", "0", "--fault", "silence:5", "--fault", "silence:5"},
         "kestrel-cli: --fault silence is given twice"},
        {{"--tcp-port", "0", "--fault", "hiccup:5"},
         "kestrel-cli: --fault: unknown fault 'hiccup' (silence, drop, wrong-unit, bad-crc or wrong-tid)"},
        {{"--tcp-port", "0", "--jitter", "10"},
         "kestrel-cli: --jitter must look like MIN-MAX in milliseconds (0..600000), not '10'"},
        {{"--tcp-port", "0", "--seed", "x"}, ""},
        {{"--tcp-port", "0", "--input", "0=70000"}, ""},
        {{"--tcp-port", "0", "--discrete", "0=2"}, ""},
        {{"--tcp-port", "0", "--discrete", "5"}, ""},
    };
    for (const auto& [extra, message] : cases) {
        std::vector<std::string> args = {"slave"};
        args.insert(args.end(), extra.begin(), extra.end());
        const CommandResult r = RunCommand(Cli(args), 10000);
        EXPECT_EQ(r.exitCode, 2) << extra[2];
        EXPECT_EQ(r.out, "");
        const auto err = Lines(r.err);
        ASSERT_GE(err.size(), 2u);
        if (!std::string(message).empty()) EXPECT_EQ(err[0], message);
        EXPECT_EQ(err[0].rfind("kestrel-cli: ", 0), 0u) << err[0];
        EXPECT_EQ(err[1], "usage:");
    }
}

// Each fault at 100 % over TCP, as a client sees it on the wire.
struct TcpFaultRun {
    std::string out;
    std::string err;
};

TEST(SlaveSimulatorCli, EveryTcpFaultOnTheWire) {
    {
        ChildProcess slave(Cli({"--lang", "en", "slave", "--tcp-port", "0", "--fault", "silence:100", "--seed", "1"}));
        const uint16_t port = AnnouncedPort(slave);
        ASSERT_NE(port, 0);
        TestClient client(port);
        ASSERT_TRUE(client.Send(Hex("00 01 00 00 00 06 01 03 00 64 00 01")));
        EXPECT_EQ(client.Await(300), TestClient::Result::Silent);  // a client time-out
        ASSERT_TRUE(slave.WaitForOutput("Fault: silence unit=1 fc=3 address=100 tid=1\n", 3000));
        EXPECT_EQ(slave.Stdout().find("TX: "), std::string::npos);
    }
    {
        ChildProcess slave(Cli({"--lang", "en", "slave", "--tcp-port", "0", "--fault", "drop:100", "--seed", "1"}));
        const uint16_t port = AnnouncedPort(slave);
        ASSERT_NE(port, 0);
        TestClient client(port);
        ASSERT_TRUE(client.Send(Hex("00 02 00 00 00 06 01 01 00 07 00 01")));
        EXPECT_EQ(client.Await(2000), TestClient::Result::Closed);  // the socket closed, nothing sent
        ASSERT_TRUE(slave.WaitForOutput("Client disconnected.\n", 3000));
        const auto lines = Lines(slave.Stdout());
        const auto at = std::find(lines.begin(), lines.end(), "Fault: drop unit=1 fc=1 address=7 tid=2");
        ASSERT_NE(at, lines.end()) << slave.Stdout();
        // The slave did its part (its own line), the fault kept the answer back and closed.
        EXPECT_EQ(std::vector<std::string>(at + 1, lines.end()),
                  (std::vector<std::string>{"Slave: FC01 Coils read from 7, n=1", "TCP recv error: 0",
                                            "Client disconnected."}));
    }
    {
        ChildProcess slave(Cli(
            {"--lang", "en", "slave", "--tcp-port", "0", "--unit", "7", "--fault", "wrong-unit:100", "--seed", "1"}));
        const uint16_t port = AnnouncedPort(slave);
        ASSERT_NE(port, 0);
        TestClient client(port);
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 03 00 00 00 06 07 06 00 01 00 09"))),
                  "00 03 00 00 00 06 08 06 00 01 00 09");
        ASSERT_TRUE(slave.WaitForOutput("Slave: FC06 Register 1 = 9\n", 3000));
        EXPECT_EQ(FaultLines(slave.Stdout()),
                  (std::vector<std::string>{"Fault: wrong-unit unit=7 fc=6 address=1 tid=3 answered-unit=8"}));
    }
    {
        ChildProcess slave(Cli({"--lang", "en", "slave", "--tcp-port", "0", "--fault", "wrong-tid:100", "--seed", "1",
                                "--holding", "0=258"}));
        const uint16_t port = AnnouncedPort(slave);
        ASSERT_NE(port, 0);
        TestClient client(port);
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 04 00 00 00 06 01 03 00 00 00 01"))),
                  "80 04 00 00 00 05 01 03 02 01 02");
        ASSERT_TRUE(slave.WaitForOutput("Slave: FC03 read from 0, n=1\n", 3000));
        EXPECT_EQ(FaultLines(slave.Stdout()),
                  (std::vector<std::string>{"Fault: wrong-tid unit=1 fc=3 address=0 tid=4 answered-tid=32772"}));
    }
    {
        // Jitter alone: every answer later by the drawn delay, on top of --delay.
        ChildProcess slave(
            Cli({"--lang", "en", "slave", "--tcp-port", "0", "--jitter", "150-150", "--delay", "50", "--seed", "1"}));
        const uint16_t port = AnnouncedPort(slave);
        ASSERT_NE(port, 0);
        TestClient client(port);
        const int64_t start = NowMs();
        EXPECT_EQ(ToHex(client.Exchange(Hex("00 05 00 00 00 06 01 03 00 00 00 01"))),
                  "00 05 00 00 00 05 01 03 02 00 00");
        EXPECT_GE(NowMs() - start, 190);
        ASSERT_TRUE(slave.WaitForOutput("Slave: FC03 read from 0, n=1\n", 3000));
        EXPECT_EQ(FaultLines(slave.Stdout()),
                  (std::vector<std::string>{"Fault: jitter unit=1 fc=3 address=0 tid=5 jitter=150ms"}));
    }
}

TEST(SlaveSimulatorCli, EveryRtuFaultOnAPtyPair) {
    for (const auto& [fault, expected, line] : std::vector<std::tuple<std::string, std::string, std::string>>{
             {"bad-crc:100", "01 03 04 12 34 56 78 7E F8", "Fault: bad-crc unit=1 fc=3 address=0 crc=7EF8"},
             {"wrong-unit:100", HexDump(BuildRtuRequest(2, 3, Hex("04 12 34 56 78"))),
              "Fault: wrong-unit unit=1 fc=3 address=0 answered-unit=2"},
             {"silence:100", "", "Fault: silence unit=1 fc=3 address=0"}}) {
        SerialPair pair;
        ASSERT_TRUE(pair.Ok());
        ChildProcess slave(Cli({"--lang", "en", "slave", "--rtu", pair.DeviceName(), "--baud", "19200", "--holding",
                                "0=0x1234,0x5678", "--fault", fault, "--seed", "3"}));
        ASSERT_TRUE(slave.WaitForOutput("Slave RTU thread started.\n", 5000)) << slave.Stdout() << slave.Stderr();
        ASSERT_TRUE(pair.Write(Hex("01 03 00 00 00 02 C4 0B")));
        EXPECT_EQ(ToHex(pair.ReadFrame(fault == "silence:100" ? 400 : 3000)), expected) << fault;
        ASSERT_TRUE(slave.WaitForOutput(line + "\n", 3000)) << slave.Stdout();
        slave.Signal(SIGTERM);
        EXPECT_EQ(slave.Wait(6000), 0);
        EXPECT_EQ(FaultLines(slave.Stdout()), (std::vector<std::string>{line}));
    }
}

// The faults a client meets at 30 % with one seed: the same on every run, across connections.
std::vector<std::string> SeededRun(const std::vector<std::string>& seedArgs, std::string* err = nullptr) {
    std::vector<std::string> args = {"--lang",        "en",      "slave",        "--tcp-port", "0", "--fault",
                                     "wrong-unit:30", "--fault", "wrong-tid:20", "--duration", "30"};
    args.insert(args.end(), seedArgs.begin(), seedArgs.end());
    ChildProcess slave(Cli(args));
    const uint16_t port = AnnouncedPort(slave);
    EXPECT_NE(port, 0);
    std::vector<std::string> seen;
    for (int connection = 0; connection < 2; ++connection) {
        TestClient client(port);
        for (int i = 0; i < 20; ++i) {
            char request[64];
            std::snprintf(request, sizeof request, "00 %02X 00 00 00 06 01 03 00 00 00 01", i);
            seen.push_back(ToHex(client.Exchange(Hex(request))));
        }
    }
    slave.Signal(SIGTERM);
    EXPECT_EQ(slave.Wait(5000), 0);
    for (const std::string& line : FaultLines(slave.Stdout())) seen.push_back(line);
    if (err != nullptr) *err = slave.Stderr();
    return seen;
}

TEST(SlaveSimulatorCli, ThirtyPercentWithASeedRepeatsItsSequence) {
    const auto first = SeededRun({"--seed", "2026"});
    ASSERT_EQ(first.size() > 40, true);
    EXPECT_EQ(SeededRun({"--seed", "2026"}), first);
    EXPECT_NE(SeededRun({"--seed", "2027"}), first);
    // Without --seed a seed is chosen and printed; it replays the run.
    std::string err;
    const auto chosen = SeededRun({}, &err);
    const std::string marker = "kestrel-cli: fault seed ";
    ASSERT_NE(err.find(marker), std::string::npos) << err;
    const std::string seed =
        err.substr(err.find(marker) + marker.size(),
                   err.find(' ', err.find(marker) + marker.size()) - err.find(marker) - marker.size());
    EXPECT_NE(err.find("(replay with --seed " + seed + ")\n"), std::string::npos) << err;
    EXPECT_EQ(SeededRun({"--seed", seed}), chosen);
}

TEST(SlaveSimulatorCli, UsageNamesTheNewOptions) {
    const CommandResult r = RunCommand(Cli({"slave", "--help"}), 10000);
    EXPECT_EQ(r.exitCode, 0);
    for (const char* option :
         {"[--input A=V[,V...]]...", "[--discrete A=B[,B...]]...", "[--image FILE]", "[--save-image FILE]",
          "[--fault silence|drop|wrong-unit|bad-crc|wrong-tid:P]...", "[--jitter MIN-MAX]", "[--seed N]"}) {
        EXPECT_NE(r.out.find(option), std::string::npos) << option << "\n" << r.out;
    }
}

}  // namespace
#endif
