// kestrel-cli structures, decode and settings, run as a user runs them: in a folder of their own,
// with a private configuration folder (XDG_CONFIG_HOME) so the user's settings are never touched.
#if !defined(_WIN32)
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <cstdlib>

#include "model_test_support.h"

namespace {

struct CliRun {
    int status = -1;
    std::string out;
    std::string err;
};

std::string ShellQuoted(const std::string& text) {
    std::string quoted = "'";
    for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

class Cli : public ::testing::Test {
protected:
    CliRun Kestrel(const std::vector<std::string>& args) {
        std::string command = "cd " + ShellQuoted(folder.File("work")) + " && XDG_CONFIG_HOME=" +
                              ShellQuoted(folder.File("config")) + " timeout 60 " + ShellQuoted(KESTREL_CLI_PATH);
        for (const std::string& a : args) command += " " + ShellQuoted(a);
        command += " >" + ShellQuoted(folder.File("out")) + " 2>" + ShellQuoted(folder.File("err")) + " </dev/null";
        const int raw = std::system(command.c_str());
        CliRun run;
        run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        run.out = ReadText(folder.File("out"));
        run.err = ReadText(folder.File("err"));
        return run;
    }
    void SetUp() override { std::filesystem::create_directories(folder.Path() / "work"); }
    std::string Work(const std::string& name) { return folder.File("work/" + name); }

    ScratchFolder folder;
};

std::string FirstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

}  // namespace

TEST_F(Cli, DemoThenListThenShowAsANewUserSeesIt) {
    const CliRun demo = Kestrel({"structures", "demo"});
    EXPECT_EQ(demo.status, 0);
    EXPECT_EQ(demo.out, "Struktur 1 \"Demo-Geraet\" mit 16 Details zu modbus_structures.json hinzugefuegt.\n");
    EXPECT_NE(ReadText(Work("modbus_structures.json")).find("\"name\": \"Demo-Geraet\""), std::string::npos);

    const CliRun list = Kestrel({"structures", "list"});
    EXPECT_EQ(list.status, 0);
    EXPECT_EQ(list.out, "1  Demo-Geraet  127.0.0.1:1502  Unit-ID 1  16 Details\n");

    const CliRun show = Kestrel({"structures", "show", "1"});
    EXPECT_EQ(show.status, 0);
    const std::string head =
        "id: 1\nname: Demo-Geraet\ndescription: Beispielgeraet mit allen Datentypen\nip: 127.0.0.1\nport: 1502\n"
        "unitId: 1\nrtuOverTcp: false\ndetails: 16\n";
    EXPECT_EQ(show.out.substr(0, head.size()), head);
    EXPECT_NE(show.out.find("  3  name=\"Temperatur\" unit=\"\xC2\xB0" "C\" dataType=FLOAT32 arraySize=1 "
                            "registerAddress=100 functionCode=3 byteOrder=BIG_ENDIAN scale=0.1 offset=-50 warnLow=0 "
                            "warnHigh=90 alarmLow=0 alarmHigh=100 alarmOnChange=false widgetType=AUTO\n"),
              std::string::npos);
    EXPECT_NE(show.out.find("  16  name=\"Rohdaten Register\" unit=\"\" dataType=RAW arraySize=4 "), std::string::npos);
    size_t lines = 0;
    for (char c : show.out) lines += c == '\n';
    EXPECT_EQ(lines, 8u + 16u);

    // A second demo goes on with the next ids.
    EXPECT_EQ(Kestrel({"--lang", "en", "structures", "demo"}).out,
              "Added structure 2 \"Demo-Geraet\" with 16 details to modbus_structures.json.\n");
    EXPECT_EQ(Kestrel({"structures", "list"}).out,
              "1  Demo-Geraet  127.0.0.1:1502  Unit-ID 1  16 Details\n2  Demo-Geraet  127.0.0.1:1502  Unit-ID 1  16 Details\n");
    EXPECT_NE(Kestrel({"structures", "show", "2"}).out.find("\n  17  name=\"Status Coil 0\""), std::string::npos);
}

TEST_F(Cli, ListWithoutAFileSaysSoOnStderr) {
    const CliRun run = Kestrel({"structures", "list"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "Keine Strukturen in modbus_structures.json\n");
    EXPECT_EQ(Kestrel({"--lang", "en", "structures", "list"}).err, "No structures in modbus_structures.json\n");
}

TEST_F(Cli, FileOptionAndNamesOnOneLine) {
    WriteText(Work("other.json"),
              "{\"structures\": [{\"id\": 7, \"name\": \"line\\nbreak\\ttab\", \"ip\": \"10.0.0.2\", \"port\": 5020, "
              "\"unitId\": 3, \"details\": []}]}");
    const CliRun run = Kestrel({"structures", "--file", "other.json", "list"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "7  line\\nbreak\\ttab  10.0.0.2:5020  Unit-ID 3  0 Details\n");
}

TEST_F(Cli, MalformedFileGivesOneLineNamingTheFileAndExitOne) {
    WriteText(Work("bad.json"), "{\"id\": 1, \"ip\": \"a\", \"port\": oops}");
    const std::string before = ReadText(Work("bad.json"));
    for (const char* action : {"list", "demo"}) {
        const CliRun run = Kestrel({"--lang", "en", "structures", "--file", "bad.json", action});
        EXPECT_EQ(run.status, 1) << action;
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err, "kestrel-cli: bad.json: malformed structures file (invalid stoi argument)\n");
    }
    EXPECT_EQ(ReadText(Work("bad.json")), before);
    WriteText(Work("big.json"), "{\"ip\": \"a\", \"details\": [{\"scale\": 1e999}]}");
    const CliRun big = Kestrel({"structures", "--file", "big.json", "show", "0"});
    EXPECT_EQ(big.status, 1);
    EXPECT_EQ(big.err, "kestrel-cli: big.json: fehlerhafte Strukturdatei (stod argument out of range)\n");
}

TEST_F(Cli, GarbageFilesNeverCrash) {
    std::string noise;
    for (int i = 0; i < 5000; ++i) noise += static_cast<char>((i * 7919) & 0xFF);
    WriteText(Work("noise.json"), noise);
    const CliRun run = Kestrel({"structures", "--file", "noise.json", "list"});
    EXPECT_TRUE(run.status == 0 || run.status == 1) << run.status;
    EXPECT_LE(std::count(run.err.begin(), run.err.end(), '\n'), 1);
}

TEST_F(Cli, ShowOfAnUnknownIdAndUsageErrors) {
    Kestrel({"structures", "demo"});
    const CliRun missing = Kestrel({"structures", "show", "9"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err, "kestrel-cli: modbus_structures.json: keine Struktur mit der Id 9\n");
    EXPECT_EQ(Kestrel({"structures"}).status, 2);
    EXPECT_EQ(Kestrel({"structures", "show"}).status, 2);
    EXPECT_EQ(Kestrel({"structures", "show", "x"}).status, 2);
    EXPECT_EQ(Kestrel({"structures", "remove"}).status, 2);
    EXPECT_EQ(FirstLine(Kestrel({"structures", "--bogus", "list"}).err), "kestrel-cli: unknown option --bogus");
}

TEST_F(Cli, DecodeLikeAPolledDetail) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--type", "UINT32", "0x1234", "0x5678"}, "305419896\n"},
        {{"--type", "UINT32", "--order", "LITTLE_ENDIAN", "0x1234", "0x5678"}, "2018915346\n"},
        {{"--type", "UINT32", "--order", "BIG_ENDIAN_SWAP", "0x1234", "0x5678"}, "873625686\n"},
        {{"--type", "UINT32", "--order", "little_endian_swap", "0x1234", "0x5678"}, "1450709556\n"},
        {{"--type", "INT16", "0xFFFF"}, "-1\n"},
        {{"--type", "UINT16", "65535"}, "65535\n"},
        {{"--type", "FLOAT32", "0x4148", "0"}, "12.500\n"},
        {{"--type", "INT32", "0x1234"}, "305397760\n"},
        {{"--type", "STRING", "0x4142", "0x0043", "0x4400"}, "ABCD\n"},
        {{"--type", "BOOLEAN", "2"}, "OFF\n"},
        {{"--type", "BOOLEAN", "3"}, "ON\n"},
        {{"--type", "UINT16", "--scale", "0.1", "--offset", "-50", "--unit", "\xC2\xB0" "C", "700"},
         "20.000 \xC2\xB0" "C\n"},
        {{"--type", "UINT16", "--unit", "rpm", "1500"}, "1500 rpm\n"},
        {{"--type", "RAW", "1", "0xabcd"}, "0001 ABCD\n"},
        {{"--type", "FLOAT64", "0x4029", "0", "0", "0"}, "12.500\n"},
    };
    for (const auto& [args, expected] : cases) {
        std::vector<std::string> all{"decode"};
        all.insert(all.end(), args.begin(), args.end());
        const CliRun run = Kestrel(all);
        EXPECT_EQ(run.status, 0) << args[1];
        EXPECT_EQ(run.out, expected) << args[1];
    }
}

TEST_F(Cli, DecodeRejectsWhatItCannotRead) {
    EXPECT_EQ(Kestrel({"decode", "1"}).status, 2);
    EXPECT_EQ(FirstLine(Kestrel({"decode", "--type", "DOUBLE", "1"}).err).rfind("kestrel-cli: --type must be one of", 0), 0u);
    EXPECT_EQ(Kestrel({"decode", "--type", "UINT16", "--order", "MIDDLE", "1"}).status, 2);
    EXPECT_EQ(Kestrel({"decode", "--type", "UINT16", "65536"}).status, 2);
    EXPECT_EQ(Kestrel({"decode", "--type", "UINT16", "-1"}).status, 2);
    EXPECT_EQ(Kestrel({"decode", "--type", "UINT16"}).status, 2);
    EXPECT_EQ(Kestrel({"decode", "--type", "UINT16", "--scale", "x", "1"}).status, 2);
}

TEST_F(Cli, SettingsShowSetAndTheLanguageOfTheCommandLine) {
    const CliRun first = Kestrel({"settings", "show"});
    EXPECT_EQ(first.status, 0);
    EXPECT_EQ(first.out,
              "theme_mode=0\nlanguage=0\nmqtt_enabled=0\nmqtt_broker=tcp://broker.hivemq.com\nmqtt_port=1883\n"
              "mqtt_topic_prefix=modbus\nmqtt_client_id=Kestrel\nmqtt_username=\nmqtt_password=\nmqtt_qos=0\n");
    EXPECT_FALSE(platform::FileExists(folder.File("config/kestrel/settings")));

    EXPECT_EQ(Kestrel({"settings", "set", "language", "1"}).status, 0);
    EXPECT_TRUE(platform::FileExists(folder.File("config/kestrel/settings")));
    // Without --lang the command line now speaks English; --lang still wins.
    EXPECT_EQ(Kestrel({"structures", "list"}).err, "No structures in modbus_structures.json\n");
    EXPECT_EQ(Kestrel({"--lang", "de", "structures", "list"}).err, "Keine Strukturen in modbus_structures.json\n");

    EXPECT_EQ(Kestrel({"settings", "set", "mqtt_password", "secret"}).status, 0);
    EXPECT_EQ(Kestrel({"settings", "set", "mqtt_broker", "tcp://example.test"}).status, 0);
    EXPECT_EQ(Kestrel({"settings", "set", "mqtt_qos", "2"}).status, 0);
    EXPECT_EQ(Kestrel({"settings", "set", "theme_mode", "2"}).status, 0);
    EXPECT_EQ(Kestrel({"settings", "set", "language", "de"}).status, 0);
    EXPECT_EQ(Kestrel({"settings", "show"}).out,
              "theme_mode=2\nlanguage=0\nmqtt_enabled=0\nmqtt_broker=tcp://example.test\nmqtt_port=1883\n"
              "mqtt_topic_prefix=modbus\nmqtt_client_id=Kestrel\nmqtt_username=\nmqtt_password=********\nmqtt_qos=2\n");
    EXPECT_NE(ReadText(folder.File("config/kestrel/settings")).find("mqtt_password=REG_SZ:secret\n"), std::string::npos);
}

TEST_F(Cli, SettingsSetRejectsOutOfRangeValuesAndUnknownKeys) {
    for (const auto& [key, value] : std::vector<std::pair<std::string, std::string>>{
             {"mqtt_port", "0"}, {"mqtt_port", "70000"}, {"mqtt_qos", "3"}, {"theme_mode", "-1"},
             {"language", "fr"}, {"mqtt_enabled", "yes"}, {"colour", "1"}}) {
        const CliRun run = Kestrel({"settings", "set", key, value});
        EXPECT_EQ(run.status, 2) << key << "=" << value;
    }
    EXPECT_EQ(Kestrel({"settings", "set", "language"}).status, 2);
    EXPECT_EQ(Kestrel({"settings"}).status, 2);
    EXPECT_FALSE(platform::FileExists(folder.File("config/kestrel/settings")));
}

TEST_F(Cli, SettingsThatCannotBeSavedExitOne) {
    WriteText(folder.File("config"), "a file where the folder should be");
    const CliRun run = Kestrel({"--lang", "en", "settings", "set", "language", "1"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(FirstLine(run.err).rfind("kestrel-cli: ", 0), 0u);
}
#endif
