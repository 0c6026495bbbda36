// kestrel-cli structures import-csv / export-csv as a user runs them: the sample register map of
// docs/samples imported and polled against the simulator seeded from the matching image, bad
// tables refused with the structures file untouched byte for byte, usage errors, and the round
// trip through the command line.
#include <gtest/gtest.h>

#if !defined(_WIN32)
#include "platform/file_io.h"
#include "sim/sim_test_support.h"

using namespace slavetest;
using namespace simtest;

namespace {

const std::string kSampleMap = std::string(KESTREL_SOURCE_DIR) + "/docs/samples/pump_register_map.csv";
const std::string kSampleImage = std::string(KESTREL_SOURCE_DIR) + "/docs/samples/pump.image";

class StructuresCsvCli : public ::testing::Test {
protected:
    void SetUp() override { dir = MakeTempDir(); }
    void TearDown() override { RunCommand({"rm", "-rf", dir}, 5000); }

    CommandResult Kestrel(std::vector<std::string> args) {
        args.insert(args.begin(), {"--lang", "en"});
        return RunCommand(Cli(args), 30000);
    }
    std::string Store() const { return dir + "/structures.json"; }

    std::string dir;
};

TEST_F(StructuresCsvCli, ImportsTheSampleMapNextToTheDemo) {
    ASSERT_EQ(Kestrel({"structures", "--file", Store(), "demo"}).exitCode, 0);
    const CommandResult r = Kestrel({"structures", "--file", Store(), "import-csv", kSampleMap, "--name", "Pump P-101",
                                     "--ip", "10.0.0.7", "--port", "1502", "--unit", "17", "--rtu-over-tcp"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "Added structure 2 \"Pump P-101\" with 13 details to " + Store() + ".\n");
    EXPECT_EQ(r.err, "");
    const CommandResult show = Kestrel({"structures", "--file", Store(), "show", "2"});
    const auto lines = Lines(show.out);
    ASSERT_EQ(lines.size(), 8u + 13u) << show.out;
    EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.begin() + 8),
              (std::vector<std::string>{"id: 2", "name: Pump P-101", "description: ", "ip: 10.0.0.7", "port: 1502",
                                        "unitId: 17", "rtuOverTcp: true", "details: 13"}));
    // Detail ids continue after the demo's sixteen.
    EXPECT_EQ(lines[8],
              "  17  name=\"Pump running\" unit=\"\" dataType=BOOLEAN arraySize=1 registerAddress=0 functionCode=1 "
              "byteOrder=BIG_ENDIAN scale=1 offset=0 warnLow=0 warnHigh=0 alarmLow=0 alarmHigh=0 alarmOnChange=false "
              "widgetType=AUTO");
    EXPECT_EQ(lines[10],
              "  19  name=\"Supply voltage; L1\" unit=\"V\" dataType=FLOAT32 arraySize=1 registerAddress=118 "
              "functionCode=4 byteOrder=BIG_ENDIAN scale=0.1 offset=0 warnLow=210 warnHigh=250 alarmLow=200 "
              "alarmHigh=260 alarmOnChange=false widgetType=AUTO");
    EXPECT_EQ(lines[15],
              "  24  name=\"Bearing temp. \\\"DE\\\"\" unit=\"\xC2\xB0"
              "C\" dataType=INT16 arraySize=1 registerAddress=206 "
              "functionCode=3 byteOrder=BIG_ENDIAN scale=0.1 offset=-50 warnLow=0 warnHigh=80 alarmLow=0 alarmHigh=95 "
              "alarmOnChange=false widgetType=AUTO");
    EXPECT_EQ(lines[20],
              "  29  name=\"Error count\" unit=\"\" dataType=UINT16 arraySize=1 registerAddress=230 functionCode=3 "
              "byteOrder=BIG_ENDIAN scale=1 offset=0 warnLow=0 warnHigh=0 alarmLow=0 alarmHigh=0 alarmOnChange=true "
              "widgetType=AUTO");
    EXPECT_FALSE(platform::FileExists(Store() + ".tmp"));
}

TEST_F(StructuresCsvCli, WithoutEndpointOptionsTheEditorsDefaults) {
    WriteText(dir + "/m.csv", "name,address,data_type\nLevel,3,UINT16\n");
    ASSERT_EQ(Kestrel({"structures", "--file", Store(), "import-csv", dir + "/m.csv", "--name", "Tank"}).exitCode, 0);
    const CommandResult list = Kestrel({"structures", "--file", Store(), "list"});
    EXPECT_EQ(list.out, "1  Tank  192.168.1.1:502  Unit-ID 1  1 Detail\n");
}

TEST_F(StructuresCsvCli, ABadTableLeavesTheFileByteForByte) {
    ASSERT_EQ(Kestrel({"structures", "--file", Store(), "demo"}).exitCode, 0);
    const std::string before = ReadText(Store());
    std::string map = "\xEF\xBB\xBFname;address;data_type;scale\r\n";
    for (int i = 0; i < 50; ++i) map += "Point " + std::to_string(i) + ";" + std::to_string(i) + ";INT16;0,5\r\n";
    map += "\r\nBroken;51;INT16;0,5x\r\n";
    WriteText(dir + "/bad.csv", map);
    const CommandResult r = Kestrel({"structures", "--file", Store(), "import-csv", dir + "/bad.csv", "--name", "X"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "kestrel-cli: " + dir +
                         "/bad.csv: line 53, column \"scale\": expected a number (such as 12.5 or "
                         "12,5), not \"0,5x\"\n");
    EXPECT_EQ(ReadText(Store()), before);
    EXPECT_FALSE(platform::FileExists(Store() + ".tmp"));

    // Every kind of bad row: its message, and not a byte of the file changed.
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"x;1;FLOAT", "line 2, column \"data_type\": expected a data type"},
        {"x;70000;INT16", "line 2, column \"address\": expected an address 0..65535"},
        {";1;INT16", "line 2, column \"name\": expected a name"},
        {"x;1;INT16;ten", "line 2, column \"scale\": expected a number"},
        {"x;1;INT16;1;FC01", "line 2, column \"function_code\": expected a function code that fits"},
        {"x;1;INT16;1;7", "line 2, column \"function_code\": expected a function code 1, 2, 3, 4, 5, 6, 15 or 16"},
        {"x;1;INT16;1;3;MIDDLE", "line 2, column \"byte_order\": expected a byte order"},
        {"x;1;INT16;1;3;;2.5", "line 2, column \"array_size\": expected a whole number"},
        {"x;1;INT16;1;3;;;maybe", "line 2, column \"alarm_on_change\": expected true/false"},
        {"x;1;INT16;1;3;;;;extra", "line 2: 9 fields, but the header names 8 columns"},
    };
    for (const auto& [row, message] : rows) {
        WriteText(dir + "/row.csv",
                  "name;address;data_type;scale;function_code;byte_order;array_size;"
                  "alarm_on_change\r\n" +
                      row + "\r\n");
        const CommandResult bad =
            Kestrel({"structures", "--file", Store(), "import-csv", dir + "/row.csv", "--name", "X"});
        EXPECT_EQ(bad.exitCode, 1) << row;
        EXPECT_EQ(bad.err.rfind("kestrel-cli: " + dir + "/row.csv: " + message, 0), 0u) << bad.err;
        EXPECT_EQ(ReadText(Store()), before) << row;
    }

    // Without a structures file, none appears.
    const std::string fresh = dir + "/fresh.json";
    EXPECT_EQ(Kestrel({"structures", "--file", fresh, "import-csv", dir + "/bad.csv", "--name", "X"}).exitCode, 1);
    EXPECT_FALSE(platform::FileExists(fresh));

    // A map that cannot be read, and a structures file that does not load, also leave it alone.
    const CommandResult missing =
        Kestrel({"structures", "--file", Store(), "import-csv", dir + "/none.csv", "--name", "X"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.err, "kestrel-cli: " + dir + "/none.csv: cannot read the file\n");
    WriteText(dir + "/broken.json", "{\"structures\": [{\"id\": x, \"ip\": \"1\"}]}");
    const std::string brokenBefore = ReadText(dir + "/broken.json");
    const CommandResult broken =
        Kestrel({"structures", "--file", dir + "/broken.json", "import-csv", kSampleMap, "--name", "X"});
    EXPECT_EQ(broken.exitCode, 1);
    EXPECT_EQ(broken.err.rfind("kestrel-cli: " + dir + "/broken.json: malformed structures file", 0), 0u) << broken.err;
    EXPECT_EQ(ReadText(dir + "/broken.json"), brokenBefore);
    EXPECT_EQ(ReadText(Store()), before);
}

TEST_F(StructuresCsvCli, UsageErrors) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"import-csv", "m.csv"}, "kestrel-cli: import-csv needs --name NAME (not empty)"},
        {{"import-csv", "m.csv", "--name", ""}, "kestrel-cli: import-csv needs --name NAME (not empty)"},
        {{"import-csv", "--name", "x"}, "kestrel-cli: structures import-csv needs one MAP.csv"},
        {{"import-csv", "a.csv", "b.csv", "--name", "x"}, "kestrel-cli: structures import-csv needs one MAP.csv"},
        {{"import-csv", "m.csv", "--name", "x", "--port", "0"}, ""},
        {{"import-csv", "m.csv", "--name", "x", "--port", "65536"}, ""},
        {{"import-csv", "m.csv", "--name", "x", "--unit", "256"}, ""},
        {{"import-csv", "m.csv", "--name", "x", "--ip", ""}, "kestrel-cli: --ip must not be empty"},
        {{"import-csv", "m.csv", "--name", "x", "--out", "y.csv"},
         "kestrel-cli: --out belongs to structures export-csv"},
        {{"list", "--name", "x"},
         "kestrel-cli: --name, --ip, --port, --unit and --rtu-over-tcp belong to structures import-csv"},
        {{"export-csv"}, "kestrel-cli: structures export-csv needs one structure id"},
        {{"export-csv", "x"}, ""},
        {{"export-csv", "1", "--rtu-over-tcp"},
         "kestrel-cli: --name, --ip, --port, --unit and --rtu-over-tcp belong to structures import-csv"},
        {{"import"},
         "kestrel-cli: structures needs list, show ID, demo, import-csv MAP.csv or export-csv ID, not 'import'"},
    };
    for (const auto& [extra, message] : cases) {
        std::vector<std::string> args = {"structures", "--file", Store()};
        args.insert(args.end(), extra.begin(), extra.end());
        const CommandResult r = Kestrel(args);
        EXPECT_EQ(r.exitCode, 2) << extra[0];
        const auto err = Lines(r.err);
        ASSERT_GE(err.size(), 2u);
        if (!message.empty()) EXPECT_EQ(err[0], message);
        EXPECT_EQ(err[1], "usage:");
        EXPECT_FALSE(platform::FileExists(Store()));
    }
}

TEST_F(StructuresCsvCli, ExportToStdoutOrFileAndBackAgain) {
    ASSERT_EQ(Kestrel({"structures", "--file", Store(), "demo"}).exitCode, 0);
    const CommandResult out = Kestrel({"structures", "--file", Store(), "export-csv", "1"});
    EXPECT_EQ(out.exitCode, 0);
    EXPECT_EQ(Lines(out.out).size(), 17u);
    EXPECT_EQ(Lines(out.out)[3],
              "Temperatur,3,100,FLOAT32,BIG_ENDIAN,1,0.1,-50,\xC2\xB0"
              "C,0,90,0,100,false");
    EXPECT_EQ(Lines(out.out)[16], "Rohdaten Register,3,310,RAW,BIG_ENDIAN,4,1,0,,0,90,0,100,false");
    ASSERT_EQ(Kestrel({"structures", "--file", Store(), "export-csv", "1", "--out", dir + "/demo.csv"}).exitCode, 0);
    EXPECT_EQ(ReadText(dir + "/demo.csv"), out.out);
    // The exported demo, imported again, exports the same table: every detail came back.
    ASSERT_EQ(Kestrel({"structures", "--file", Store(), "import-csv", dir + "/demo.csv", "--name", "Copy"}).exitCode,
              0);
    EXPECT_EQ(Kestrel({"structures", "--file", Store(), "export-csv", "2"}).out, out.out);
    const CommandResult none = Kestrel({"structures", "--file", Store(), "export-csv", "9"});
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_EQ(none.err, "kestrel-cli: " + Store() + ": no structure with id 9\n");
}

TEST_F(StructuresCsvCli, TheImportedMapPolledAgainstTheSimulatorSeededFromItsImage) {
    ChildProcess slave(Cli({"--lang", "en", "slave", "--tcp-port", "0", "--image", kSampleImage, "--duration", "30"}));
    const uint16_t port = AnnouncedPort(slave);
    ASSERT_NE(port, 0) << slave.Stderr();
    ASSERT_EQ(Kestrel({"structures", "--file", Store(), "import-csv", kSampleMap, "--name", "Pump P-101", "--ip",
                       "127.0.0.1", "--port", std::to_string(port)})
                  .exitCode,
              0);
    const CommandResult poll = Kestrel({"poll", "--file", Store(), "--name", "Pump P-101", "--cycles", "1"});
    EXPECT_EQ(poll.exitCode, 0) << poll.err;
    EXPECT_EQ(poll.out,
              "Pump running: ON\nOverload trip: OFF\nSupply voltage; L1: 230.100 V\nMotor current: 12.345 A\n"
              "Frequency: 50.020 Hz\nOutlet pressure: 4.120 bar\nFlow: 123.400 m\xC2\xB3/h\n"
              "Bearing temp. \"DE\": 62.500 \xC2\xB0"
              "C\nRunning hours: 8760 h\nEnergy: 1234.500 kWh\n"
              "Speed setpoint: 1480 rpm\nSerial number: KP-2041-A\nError count: 3\n");
    slave.Signal(SIGTERM);
    EXPECT_EQ(slave.Wait(5000), 0);
}

}  // namespace
#endif
