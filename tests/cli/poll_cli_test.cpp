// kestrel-cli poll and demo as a user runs them: a store file naming a device served by our own
// slave in this test process, the exact lines printed, the CSV and PCAP files written, a clean
// stop on SIGTERM. Native only: the command line is started as a child process.
#if !defined(_WIN32)
#include <csignal>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "model/structure_store.h"
#include "protocol/modbus_client.h"
#include "support/child_process.h"
#include "support/text_lines.h"

namespace {

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

class PollCli : public testing::Test {
protected:
    void SetUp() override {
        dir = MakeTempDir();
        ConnectionConfig config;
        config.role = 1;
        config.port = 0;
        ASSERT_TRUE(slave.Connect(config));
        slave.Image().SetHoldingRegisters(10, {1450, 7});
        StructureStore store(dir + "/structures.json");
        ModbusStructure s;
        s.name = "Pumpe 1";
        s.ip = "127.0.0.1";
        s.port = slave.ListeningPort();
        Modbus::ModbusDetail speed;
        speed.name = "Drehzahl";
        speed.unit = "rpm";
        speed.registerAddress = 10;
        speed.alarmHigh = 1000;
        Modbus::ModbusDetail level;
        level.name = "Stufe";
        level.registerAddress = 11;
        level.scale = 0.5;
        Modbus::ModbusDetail missing;
        missing.name = "Fehlt";
        missing.registerAddress = 5000;
        missing.functionCode = 4;
        s.details = {speed, level};
        store.AddStructure(s);
        s.name = "Leer";
        s.details.clear();
        store.AddStructure(s);
        ASSERT_TRUE(store.SaveStructures());
    }
    void TearDown() override {
        slave.Disconnect();
        RunCommand({"rm", "-rf", dir});
    }
    CommandResult Cli(std::vector<std::string> args) {
        args.insert(args.begin(), KESTREL_CLI_PATH);
        return RunCommand(args, 30000);
    }

    std::string dir;
    ModbusClient slave;
};

TEST_F(PollCli, PrintsTheLiveValueLinesOfEachCycleAndTheAlarmOnce) {
    const CommandResult r = Cli({"--lang", "en", "poll", "--file", dir + "/structures.json", "--name", "Pumpe 1",
                                 "--interval", "100", "--cycles", "3"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto lines = SplitLines(r.out);
    ASSERT_EQ(lines.size(), 7u) << r.out;
    EXPECT_EQ(lines[0].substr(0, 1), "[");
    EXPECT_NE(lines[0].find("] Schwellenwert Alarm | Drehzahl | Drehzahl > 1000.000000 (is: 1450.00 rpm)"),
              std::string::npos)
        << lines[0];
    for (int cycle = 0; cycle < 3; ++cycle) {
        EXPECT_EQ(lines[1 + 2 * cycle], "Drehzahl: 1450 rpm");
        EXPECT_EQ(lines[2 + 2 * cycle], "Stufe: 3.500");
    }
    // The connection's log lines go to stderr, beginning with the connect and ending with the close.
    const auto log = SplitLines(r.err);
    ASSERT_GE(log.size(), 3u);
    EXPECT_EQ(log[0], "Connecting to 127.0.0.1:" + std::to_string(slave.ListeningPort()) + " ...");
    EXPECT_EQ(log[1], "Connected.");
    EXPECT_EQ(log.back(), "Disconnected.");
}

TEST_F(PollCli, FailedDetailPrintsFehler) {
    slave.exceptionInjectionEnabled = true;
    slave.exceptionInjectionFrom = 11;
    slave.exceptionInjectionTo = 11;
    const CommandResult r =
        Cli({"poll", "--file", dir + "/structures.json", "--id", "1", "--interval", "100", "--cycles", "1"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto lines = SplitLines(r.out);
    ASSERT_EQ(lines.size(), 3u) << r.out;
    EXPECT_EQ(lines[1], "Drehzahl: 1450 rpm");
    EXPECT_EQ(lines[2], "Stufe: [Fehler]");
    EXPECT_NE(r.err.find("Modbus Exception: 4\n"), std::string::npos) << r.err;
}

TEST_F(PollCli, WritesTheRecordingAsCsvAndTheTraceAsPcap) {
    const std::string csv = dir + "/rec.csv";
    const std::string pcap = dir + "/trace.pcap";
    const CommandResult r = Cli({"--lang", "de", "poll", "--file", dir + "/structures.json", "--id", "1", "--interval",
                                 "100", "--cycles", "2", "--record", csv, "--pcap", pcap});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const std::string text = ReadFile(csv);
    const auto rows = SplitLines(text);
    ASSERT_EQ(rows.size(), 5u) << text;
    EXPECT_EQ(rows[0], "Zeitstempel;Name;Rohwert;Anzeigewert;Einheit\r");
    EXPECT_EQ(rows[1].substr(19), ";Drehzahl;1450.000000;1450 rpm;rpm\r");
    EXPECT_EQ(rows[2].substr(19), ";Stufe;7.000000;3.500;\r");

    // A CSV reader sees the five columns.
    const CommandResult csvCheck = RunCommand(
        {"/usr/bin/python3", "-c",
         "import csv,sys\nrows=list(csv.reader(open(sys.argv[1],newline=''),delimiter=';'))\n"
         "print(len(rows), set(len(r) for r in rows), rows[1][1], rows[1][2], rows[1][3], rows[1][4])",
         csv});
    EXPECT_EQ(csvCheck.out, "5 {5} Drehzahl 1450.000000 1450 rpm rpm\n") << csvCheck.err;

    // The capture holds request and response of every read: 2 cycles x 2 details x 2 packets.
    const std::string capture = ReadFile(pcap);
    ASSERT_GE(capture.size(), 24u);
    EXPECT_EQ(static_cast<uint8_t>(capture[0]), 0xD4);
    if (HaveProgram("tshark")) {
        const CommandResult t = RunCommand({"tshark", "-r", pcap, "-o",
                                            "mbtcp.tcp.port:" + std::to_string(slave.ListeningPort()), "-Y", "mbtcp",
                                            "-T", "fields", "-e", "mbtcp.trans_id", "-e", "modbus.func_code", "-e",
                                            "modbus.regval_uint16"});
        const auto packets = SplitLines(t.out);
        ASSERT_EQ(packets.size(), 8u) << t.out << t.err;
        EXPECT_EQ(packets[0], "0\t3\t");
        EXPECT_EQ(packets[1], "0\t3\t1450");
        EXPECT_EQ(packets[7], "3\t3\t7");
    }
}

TEST_F(PollCli, StopsCleanlyOnSigterm) {
    BackgroundProcess poll({KESTREL_CLI_PATH, "--lang", "en", "poll", "--file", dir + "/structures.json", "--id", "1",
                            "--interval", "100"},
                           dir + "/poll.log");
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
    ASSERT_TRUE(poll.Running());
    EXPECT_EQ(poll.Stop(5000), 0);
    const std::string log = ReadFile(dir + "/poll.log");
    EXPECT_NE(log.find("Drehzahl: 1450 rpm\n"), std::string::npos) << log;
    EXPECT_EQ(log.substr(log.size() - 14), "Disconnected.\n") << log;
}

TEST_F(PollCli, StructureWithoutDetailsOrUnknownNameExitsOne) {
    CommandResult r = Cli({"--lang", "en", "poll", "--file", dir + "/structures.json", "--id", "2"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "kestrel-cli: Please select a structure with details.\n");
    r = Cli({"--lang", "en", "poll", "--file", dir + "/structures.json", "--name", "Nope"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "kestrel-cli: " + dir + "/structures.json: no structure named 'Nope'\n");
}

TEST_F(PollCli, UnreachableDeviceExitsOneWithTheConnectionMessage) {
    slave.Disconnect();
    const CommandResult r = Cli({"--lang", "en", "poll", "--file", dir + "/structures.json", "--id", "1"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("kestrel-cli: Connection to structure failed.\n"), std::string::npos) << r.err;
}

TEST_F(PollCli, UsageErrors) {
    EXPECT_EQ(Cli({"poll", "--file", dir + "/structures.json"}).exitCode, 2);
    EXPECT_EQ(Cli({"poll", "--id", "1", "--name", "x"}).exitCode, 2);
    EXPECT_EQ(Cli({"poll", "--id", "1", "--cycles", "0"}).exitCode, 2);
    EXPECT_EQ(Cli({"poll", "--id", "1", "--bogus"}).exitCode, 2);
    const CommandResult r = Cli({"demo", "--interval", "1000"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.err.substr(0, r.err.find('\n')),
              "kestrel-cli: --interval must be at most 400 ms: the demo slave drops a client that is silent for 500 ms");
}

TEST_F(PollCli, MalformedStoreFileIsOneLineAndExitOne) {
    std::ofstream(dir + "/bad.json") << "{\"id\": 99999999999, \"ip\": \"a\"}";
    const CommandResult r = Cli({"--lang", "en", "poll", "--file", dir + "/bad.json", "--id", "1"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_EQ(r.err.rfind("kestrel-cli: " + dir + "/bad.json: malformed structures file", 0), 0u) << r.err;
}

TEST(DemoCli, FiveCyclesShowChangingValuesAndAnAlarm) {
    const CommandResult r = RunCommand({KESTREL_CLI_PATH, "--lang", "en", "demo", "--cycles", "5"}, 60000);
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto lines = SplitLines(r.out);
    std::vector<std::string> temperatures;
    int alarmLines = 0;
    for (const auto& line : lines) {
        if (line.rfind("Temperatur: ", 0) == 0) temperatures.push_back(line);
        if (line.find("] Schwellenwert Alarm | Temperatur | ") != std::string::npos) ++alarmLines;
    }
    ASSERT_EQ(temperatures.size(), 5u) << r.out;
    EXPECT_EQ(temperatures[0], "Temperatur: 72.000 \xC2\xB0" "C");
    EXPECT_NE(temperatures[1], temperatures[0]);
    EXPECT_NE(temperatures[4], temperatures[3]);
    EXPECT_EQ(alarmLines, 1) << r.out;
    EXPECT_NE(r.out.find("Geraetekennung: KESTREL-DEMO-01\n"), std::string::npos);
    EXPECT_EQ(r.out.find("[Fehler]"), std::string::npos) << r.out;
    EXPECT_EQ(SplitLines(r.err).back(), "Disconnected.");
}

}  // namespace
#endif
