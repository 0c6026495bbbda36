// kestrel-cli poll --mqtt against a real mosquitto broker: a structure served by our own slave in
// this test process, polled by the command line as a child process, and mosquitto_sub recording
// what the broker delivered: the exact topics and payloads of every data type, an invalid read,
// alarms, the status topic with its last will, retained values, on-change, the settings, and the
// refused and unreachable brokers. Native only.
#if !defined(_WIN32)
#include <csignal>

#include <gtest/gtest.h>

#include "bridge/broker_fixture.h"
#include "model/structure_store.h"
#include "protocol/modbus_client.h"

namespace {

using bridgetest::Broker;
using bridgetest::Subscriber;
using bridgetest::WithoutTime;

Modbus::ModbusDetail Detail(const std::string& name, Modbus::DataType type, uint16_t address, int32_t arraySize = 1) {
    Modbus::ModbusDetail detail;
    detail.name = name;
    detail.dataType = type;
    detail.registerAddress = address;
    detail.arraySize = arraySize;
    return detail;
}

class MqttBridge : public testing::Test {
protected:
    void SetUp() override {
        dir = MakeTempDir();
        // Set before the slave's thread starts, which reads them.
        slave.exceptionInjectionEnabled = true;
        slave.exceptionInjectionFrom = 30;
        slave.exceptionInjectionTo = 30;
        ConnectionConfig config;
        config.role = 1;
        config.port = 0;
        ASSERT_TRUE(slave.Connect(config));
        SlaveRegisterImage& image = slave.Image();
        image.SetCoils(0, {true});
        image.SetHoldingRegisters(0, {0x1234, 0xFFFE, 235, 0xFFFF, 0xFFF6, 0x0001, 0x0000});
        image.SetHoldingRegisters(7, {0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0x0020, 0x0000, 0x0000, 0x0001});
        image.SetHoldingRegisters(15, {0x4148, 0x0000, 0x3FF4, 0x0000, 0x0000, 0x0000});
        image.SetHoldingRegisters(21, {0x4142, 0x4322, 0x0000, 0xDEAD, 0x0001});

        ModbusStructure s;
        s.name = "Anlage 1";
        s.ip = "127.0.0.1";
        s.port = slave.ListeningPort();
        Modbus::ModbusDetail coil = Detail("Schalter", Modbus::DataType::Boolean, 0);
        coil.functionCode = 1;
        Modbus::ModbusDetail temperature = Detail("Temperatur", Modbus::DataType::UInt16, 2);
        temperature.scale = 0.1;
        temperature.unit = "°C";
        temperature.alarmHigh = 20;
        Modbus::ModbusDetail pressure = Detail("Druck", Modbus::DataType::Float64, 17);
        pressure.scale = 2;
        pressure.offset = 1;
        pressure.unit = "bar";
        s.details = {coil,
                     Detail("Byte", Modbus::DataType::Byte, 0),
                     Detail("Int16", Modbus::DataType::Int16, 1),
                     temperature,
                     Detail("Int32", Modbus::DataType::Int32, 3),
                     Detail("UInt32", Modbus::DataType::UInt32, 5),
                     Detail("Int64", Modbus::DataType::Int64, 7),
                     Detail("UInt64", Modbus::DataType::UInt64, 11),
                     Detail("Float32", Modbus::DataType::Float32, 15),
                     pressure,
                     Detail("Kennung", Modbus::DataType::String, 21, 3),
                     Detail("Rohdaten", Modbus::DataType::Raw, 24, 2),
                     Detail("Kaputt", Modbus::DataType::UInt16, 30)};
        StructureStore store(dir + "/structures.json");
        store.AddStructure(s);
        ASSERT_TRUE(store.SaveStructures());
    }
    void TearDown() override {
        slave.Disconnect();
        RunCommand({"rm", "-rf", dir});
    }

    // kestrel-cli with settings of its own (never the user's), English texts.
    std::vector<std::string> CliArgs(std::vector<std::string> args) const {
        std::vector<std::string> argv = {"env", "XDG_CONFIG_HOME=" + dir + "/config", KESTREL_CLI_PATH, "--lang", "en"};
        argv.insert(argv.end(), args.begin(), args.end());
        return argv;
    }
    CommandResult Cli(std::vector<std::string> args, int timeoutMs = 30000) {
        return RunCommand(CliArgs(std::move(args)), timeoutMs);
    }
    std::vector<std::string> PollArgs(const Broker& broker, std::vector<std::string> more) const {
        std::vector<std::string> args = {"poll",          "--file",      dir + "/structures.json",
                                         "--id",          "1",           "--interval",
                                         "100",           "--mqtt",      "--mqtt-broker",
                                         broker.Url(),    "--mqtt-prefix", "werk",
                                         "--mqtt-client-id", "kestrel-test"};
        args.insert(args.end(), more.begin(), more.end());
        return args;
    }

    std::string dir;
    ModbusClient slave;
};

const std::string kBase = "werk/Anlage 1/";

TEST_F(MqttBridge, PublishesEveryDataTypeTheInvalidReadTheAlarmAndTheStatus) {
    Broker broker(dir, "allow_anonymous true\n");
    Subscriber sub(broker, "werk/#");
    ASSERT_TRUE(sub.WaitSubscribed("werk/probe"));
    const CommandResult r = Cli(PollArgs(broker, {"--cycles", "1", "--mqtt-qos", "1"}));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.err.find("MQTT: connected to 127.0.0.1:" + std::to_string(broker.port) + "\n"), std::string::npos)
        << r.err;
    ASSERT_TRUE(sub.WaitFor(kBase + "status offline"));

    const auto value = [&](const std::string& detail) {
        const auto payloads = sub.PayloadsOf(kBase + detail);
        EXPECT_EQ(payloads.size(), 1u) << detail;
        return payloads.empty() ? "" : WithoutTime(payloads.front());
    };
    EXPECT_EQ(value("Schalter"), R"({"value": true, "text": "ON", "unit": "", "valid": true, "time": T})");
    EXPECT_EQ(value("Byte"), R"({"value": 52, "text": "52", "unit": "", "valid": true, "time": T})");
    EXPECT_EQ(value("Int16"), R"({"value": -2, "text": "-2", "unit": "", "valid": true, "time": T})");
    EXPECT_EQ(value("Temperatur"), R"({"value": 23.5, "text": "23.500 °C", "unit": "°C", "valid": true, "time": T})");
    EXPECT_EQ(value("Int32"), R"({"value": -10, "text": "-10", "unit": "", "valid": true, "time": T})");
    EXPECT_EQ(value("UInt32"), R"({"value": 65536, "text": "65536", "unit": "", "valid": true, "time": T})");
    EXPECT_EQ(value("Int64"), R"({"value": -1, "text": "-1", "unit": "", "valid": true, "time": T})");
    // Beyond the 53 bits of a double, still exact.
    EXPECT_EQ(value("UInt64"),
              R"({"value": 9007199254740993, "text": "9007199254740993", "unit": "", "valid": true, "time": T})");
    EXPECT_EQ(value("Float32"), R"({"value": 12.5, "text": "12.500", "unit": "", "valid": true, "time": T})");
    EXPECT_EQ(value("Druck"), R"({"value": 3.5, "text": "3.500 bar", "unit": "bar", "valid": true, "time": T})");
    EXPECT_EQ(value("Kennung"), R"({"value": "ABC\"", "text": "ABC\"", "unit": "", "valid": true, "time": T})");
    EXPECT_EQ(value("Rohdaten"),
              R"({"value": "DEAD 0001", "text": "DEAD 0001", "unit": "", "valid": true, "time": T})");
    EXPECT_EQ(value("Kaputt"), R"({"value": null, "text": "[Fehler]", "unit": "", "valid": false, "time": T})");

    const auto alarms = sub.PayloadsOf(kBase + "alarms");
    ASSERT_EQ(alarms.size(), 1u);
    EXPECT_EQ(WithoutTime(alarms[0]), R"({"type": 1, "kind": "Schwellenwert Alarm", "detail": "Temperatur", )"
                                      R"x("message": "Temperatur > 20.000000 (is: 23.50 °C)", "time": T})x");
    // One cycle's values share one time stamp.
    const std::string byte = sub.PayloadsOf(kBase + "Byte").front();
    EXPECT_NE(sub.PayloadsOf(kBase + "Kaputt").front().find(byte.substr(byte.find("\"time\""))), std::string::npos);

    // The status topic: "online" before the values, "offline" after them, both retained on the
    // broker (a late subscriber is handed "offline" as a retained message).
    const auto messages = sub.Messages();
    ASSERT_GE(messages.size(), 16u);
    EXPECT_EQ(messages.front(), "0 " + kBase + "status online");
    EXPECT_EQ(messages.back(), "0 " + kBase + "status offline");
    Subscriber late(broker, kBase + "status");
    EXPECT_TRUE(late.WaitFor("1 " + kBase + "status offline\n", 5000)) << late.child->Stdout();
}

TEST_F(MqttBridge, Qos2DeliversEveryValueOnce) {
    Broker broker(dir, "allow_anonymous true\n");
    Subscriber sub(broker, "werk/#");
    ASSERT_TRUE(sub.WaitSubscribed("werk/probe"));
    const CommandResult r = Cli(PollArgs(broker, {"--cycles", "3", "--mqtt-qos", "2"}));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    ASSERT_TRUE(sub.WaitFor(kBase + "status offline"));
    // 3 cycles of 13 details, the alarm once, online and offline.
    EXPECT_EQ(sub.Messages().size(), 3u * 13u + 1u + 2u) << sub.child->Stdout();
    EXPECT_EQ(sub.PayloadsOf(kBase + "Float32").size(), 3u);
}

TEST_F(MqttBridge, LastWillSaysOfflineWhenTheBridgeIsKilled) {
    Broker broker(dir, "allow_anonymous true\n");
    Subscriber sub(broker, kBase + "status/#");
    ASSERT_TRUE(sub.WaitSubscribed(kBase + "status/probe"));
    ChildProcess bridge(CliArgs(PollArgs(broker, {"--mqtt-qos", "1"})));
    ASSERT_TRUE(sub.WaitFor(kBase + "status online"));
    bridge.Signal(SIGKILL);
    EXPECT_EQ(bridge.Wait(5000), 128 + SIGKILL);
    ASSERT_TRUE(sub.WaitFor(kBase + "status offline"));
    EXPECT_EQ(sub.PayloadsOf(kBase + "status"), (std::vector<std::string>{"online", "offline"}));
    Subscriber late(broker, kBase + "status");
    EXPECT_TRUE(late.WaitFor("1 " + kBase + "status offline\n", 5000)) << late.child->Stdout();
}

TEST_F(MqttBridge, SigtermIsACleanStopThatSaysOffline) {
    Broker broker(dir, "allow_anonymous true\n");
    Subscriber sub(broker, "werk/#");
    ASSERT_TRUE(sub.WaitSubscribed("werk/probe"));
    ChildProcess bridge(CliArgs(PollArgs(broker, {})));
    ASSERT_TRUE(sub.WaitFor(kBase + "Byte "));
    bridge.Signal(SIGTERM);
    EXPECT_EQ(bridge.Wait(10000), 0) << bridge.Stderr();
    ASSERT_TRUE(sub.WaitFor(kBase + "status offline"));
    EXPECT_EQ(sub.Messages().back(), "0 " + kBase + "status offline");
}

TEST_F(MqttBridge, ADeviceThatGoesAwayIsPublishedAsInvalid) {
    Broker broker(dir, "allow_anonymous true\n");
    Subscriber sub(broker, "werk/#");
    ASSERT_TRUE(sub.WaitSubscribed("werk/probe"));
    ChildProcess bridge(CliArgs(PollArgs(broker, {"--mqtt-qos", "1"})));
    ASSERT_TRUE(sub.WaitFor(kBase + R"(Int16 {"value": -2,)"));
    slave.Disconnect();
    ASSERT_TRUE(sub.WaitFor(kBase + R"(Int16 {"value": null, "text": "[Fehler]", "unit": "", "valid": false, )"))
        << sub.child->Stdout();
    bridge.Signal(SIGTERM);
    EXPECT_EQ(bridge.Wait(10000), 0) << bridge.Stderr();
    ASSERT_TRUE(sub.WaitFor(kBase + "status offline"));
}

TEST_F(MqttBridge, RetainedValuesReachALateSubscriber) {
    Broker broker(dir, "allow_anonymous true\n");
    ASSERT_EQ(Cli(PollArgs(broker, {"--cycles", "1", "--mqtt-retain"})).exitCode, 0);
    Subscriber late(broker, kBase + "Int16");
    ASSERT_TRUE(late.WaitFor(kBase + "Int16 "));
    ASSERT_EQ(late.Messages().size(), 1u);
    EXPECT_EQ(WithoutTime(late.Messages()[0]),
              "1 " + kBase + R"(Int16 {"value": -2, "text": "-2", "unit": "", "valid": true, "time": T})");
    // Without --mqtt-retain nothing of the values stays on the broker.
    Broker plain(dir, "allow_anonymous true\n");
    ASSERT_EQ(Cli(PollArgs(plain, {"--cycles", "1"})).exitCode, 0);
    Subscriber other(plain, "werk/#");
    ASSERT_TRUE(other.WaitFor(kBase + "status offline"));
    ASSERT_TRUE(other.WaitSubscribed("werk/probe"));
    EXPECT_EQ(other.Messages(), std::vector<std::string>{"1 " + kBase + "status offline"});
}

TEST_F(MqttBridge, OnChangePublishesADetailOnlyWhenItsValueChanged) {
    Broker broker(dir, "allow_anonymous true\n");
    Subscriber sub(broker, "werk/#");
    ASSERT_TRUE(sub.WaitSubscribed("werk/probe"));
    ChildProcess bridge(CliArgs(PollArgs(broker, {"--mqtt-on-change", "--mqtt-qos", "1"})));
    ASSERT_TRUE(bridge.WaitForOutput("Int16: -2\nTemperatur", 10000));
    // Wait three more cycles: nothing changes, nothing more is published.
    for (int cycle = 0; cycle < 3; ++cycle) {
        const size_t printed = bridge.Stdout().size();
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (bridge.Stdout().size() == printed && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    slave.Image().SetHoldingRegisters(1, {0xFFFD});
    ASSERT_TRUE(bridge.WaitForOutput("Int16: -3\n", 10000));
    ASSERT_TRUE(sub.WaitFor("\"value\": -3,"));
    bridge.Signal(SIGTERM);
    EXPECT_EQ(bridge.Wait(10000), 0);
    ASSERT_TRUE(sub.WaitFor(kBase + "status offline"));
    const auto int16 = sub.PayloadsOf(kBase + "Int16");
    ASSERT_EQ(int16.size(), 2u);
    EXPECT_NE(int16[0].find("\"value\": -2,"), std::string::npos);
    EXPECT_NE(int16[1].find("\"value\": -3,"), std::string::npos);
    EXPECT_EQ(sub.PayloadsOf(kBase + "Byte").size(), 1u);
    EXPECT_EQ(sub.PayloadsOf(kBase + "Kaputt").size(), 1u);  // invalid each time: no change either
}

TEST_F(MqttBridge, TopicsKeepNamesButNotWhatMqttForbids) {
    ModbusStructure s;
    s.name = "Halle/3 #Nord";
    s.ip = "127.0.0.1";
    s.port = slave.ListeningPort();
    s.details = {Detail("Öl+Temp\x01 x", Modbus::DataType::Int16, 1)};
    StructureStore store(dir + "/names.json");
    store.AddStructure(s);
    ASSERT_TRUE(store.SaveStructures());
    Broker broker(dir, "allow_anonymous true\n");
    Subscriber sub(broker, "werk/#");
    ASSERT_TRUE(sub.WaitSubscribed("werk/probe"));
    const CommandResult r = Cli({"poll", "--file", dir + "/names.json", "--id", "1", "--interval", "100", "--cycles",
                                 "1", "--mqtt", "--mqtt-broker", broker.Url(), "--mqtt-prefix", "werk"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    ASSERT_TRUE(sub.WaitFor("werk/Halle_3 _Nord/status offline"));
    EXPECT_EQ(sub.PayloadsOf("werk/Halle_3 _Nord/Öl_Temp_ x").size(), 1u) << sub.child->Stdout();
}

TEST_F(MqttBridge, TwoDetailsOnOneTopicAreAnErrorNamingBoth) {
    ModbusStructure s;
    s.name = "Pumpe";
    s.ip = "127.0.0.1";
    s.port = slave.ListeningPort();
    s.details = {Detail("Druck/ein", Modbus::DataType::Int16, 1), Detail("Druck+ein", Modbus::DataType::Int16, 2)};
    StructureStore store(dir + "/clash.json");
    store.AddStructure(s);
    ASSERT_TRUE(store.SaveStructures());
    const CommandResult r = Cli({"poll", "--file", dir + "/clash.json", "--id", "1", "--cycles", "1", "--mqtt",
                                 "--mqtt-broker", "tcp://127.0.0.1:1", "--mqtt-prefix", "werk"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "kestrel-cli: detail 'Druck+ein' (id 2) and detail 'Druck/ein' (id 1) map to the same topic "
                     "'werk/Pumpe/Druck_ein'\n");
}

TEST_F(MqttBridge, APasswordFromAFileLogsInAndAWrongOneEndsTheRunWithExit1) {
    RunCommand({"mosquitto_passwd", "-b", "-c", dir + "/passwd", "anna", "geheim 1"});
    Broker broker(dir, "allow_anonymous false\npassword_file " + dir + "/passwd\n");
    bridgetest::WriteText(dir + "/right", "geheim 1\n");
    bridgetest::WriteText(dir + "/wrong", "geheim 2\r\n");
    const CommandResult good = Cli(PollArgs(broker, {"--cycles", "1", "--mqtt-user", "anna", "--mqtt-password-file",
                                                     dir + "/right"}));
    EXPECT_EQ(good.exitCode, 0) << good.err;
    EXPECT_NE(good.err.find("MQTT: connected to"), std::string::npos) << good.err;
    const CommandResult bad = Cli(PollArgs(broker, {"--cycles", "1000", "--mqtt-user", "anna", "--mqtt-password-file",
                                                    dir + "/wrong"}),
                                  15000);
    EXPECT_EQ(bad.exitCode, 1);
    EXPECT_EQ(bad.err, "MQTT: 127.0.0.1:" + std::to_string(broker.port) +
                           " refused the login: Connection Refused: not authorised.\n");
    EXPECT_EQ(bad.out, "");
    const CommandResult missing =
        Cli(PollArgs(broker, {"--mqtt-user", "anna", "--mqtt-password-file", dir + "/nothing"}));
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.err, "kestrel-cli: " + dir + "/nothing: cannot read the password file\n");
}

TEST_F(MqttBridge, TlsVerifiesTheBrokerWithTheGivenCaAndRefusesAnother) {
    const auto openssl = [&](std::vector<std::string> args) {
        args.insert(args.begin(), "openssl");
        const CommandResult r = RunCommand(args, 30000);
        ASSERT_EQ(r.exitCode, 0) << r.err;
    };
    const std::string d = dir + "/";
    openssl({"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", d + "ca.key", "-out", d + "ca.crt", "-days",
             "2", "-subj", "/CN=Kestrel Test CA"});
    openssl({"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", d + "other.key", "-out", d + "other.crt",
             "-days", "2", "-subj", "/CN=Another CA"});
    openssl({"req", "-newkey", "rsa:2048", "-nodes", "-keyout", d + "server.key", "-out", d + "server.csr", "-subj",
             "/CN=127.0.0.1"});
    bridgetest::WriteText(d + "ext.cnf", "subjectAltName=IP:127.0.0.1\n");
    openssl({"x509", "-req", "-in", d + "server.csr", "-CA", d + "ca.crt", "-CAkey", d + "ca.key", "-CAcreateserial",
             "-out", d + "server.crt", "-days", "2", "-extfile", d + "ext.cnf"});
    Broker broker(dir, "allow_anonymous true\ncafile " + d + "ca.crt\ncertfile " + d + "server.crt\nkeyfile " + d +
                           "server.key\n");
    Subscriber sub(broker, "werk/#", {"--cafile", d + "ca.crt"});
    ASSERT_TRUE(sub.WaitSubscribed("werk/probe", {"--cafile", d + "ca.crt"}));
    const std::string url = "mqtts://127.0.0.1:" + std::to_string(broker.port);
    const CommandResult good = Cli({"poll", "--file", dir + "/structures.json", "--id", "1", "--cycles", "1", "--mqtt",
                                    "--mqtt-broker", url, "--mqtt-ca", d + "ca.crt", "--mqtt-prefix", "werk"});
    EXPECT_EQ(good.exitCode, 0) << good.err;
    EXPECT_TRUE(sub.WaitFor(kBase + "Int16 {\"value\": -2,"));
    const CommandResult bad = Cli({"poll", "--file", dir + "/structures.json", "--id", "1", "--cycles", "1000",
                                   "--mqtt", "--mqtt-broker", url, "--mqtt-ca", d + "other.crt", "--mqtt-prefix", "werk"},
                                  15000);
    EXPECT_EQ(bad.exitCode, 1);
    EXPECT_EQ(bad.err.rfind("MQTT: the certificate of " + url + " does not verify with " + d + "other.crt (", 0), 0u)
        << bad.err;
    EXPECT_NE(bad.err.find("certificate verify failed"), std::string::npos) << bad.err;
}

TEST_F(MqttBridge, AnUnreachableBrokerDoesNotStopPolling) {
    const uint16_t nobody = FreeTcpPort();
    const CommandResult r = Cli({"poll", "--file", dir + "/structures.json", "--id", "1", "--interval", "100",
                                 "--cycles", "3", "--mqtt", "--mqtt-broker", "tcp://127.0.0.1:" + std::to_string(nobody),
                                 "--mqtt-qos", "1"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(bridgetest::Lines(r.out).size(), 1u + 3u * 13u) << r.out;  // the alarm line and three cycles
    const std::string label = "127.0.0.1:" + std::to_string(nobody);
    EXPECT_EQ(r.err.find("MQTT: " + label + " not reachable (Connection refused); trying again with pauses growing to "
                         "30 s\n"),
              0u)
        << r.err;
    EXPECT_EQ(r.err.find("trying again", r.err.find("trying again") + 1), std::string::npos) << r.err;  // said once
    // 3 cycles of 13 values, 1 alarm and "offline" waited for the broker in vain.
    EXPECT_NE(r.err.find("MQTT: 41 messages not delivered: the broker was not reachable in time\n"), std::string::npos)
        << r.err;
}

TEST_F(MqttBridge, TheStoredSettingsAreUsedButTheirFlagGatesNothing) {
    Broker broker(dir, "allow_anonymous true\n");
    Subscriber sub(broker, "gespeichert/#");
    ASSERT_TRUE(sub.WaitSubscribed("gespeichert/probe"));
    for (const auto& [key, value] : std::vector<std::pair<std::string, std::string>>{
             {"mqtt_broker", broker.Url()}, {"mqtt_topic_prefix", "gespeichert"}, {"mqtt_enabled", "1"}}) {
        ASSERT_EQ(Cli({"settings", "set", key, value}).exitCode, 0);
    }
    // Enabled, but no --mqtt: nothing is published.
    ASSERT_EQ(Cli({"poll", "--file", dir + "/structures.json", "--id", "1", "--cycles", "1"}).exitCode, 0);
    // Disabled, with --mqtt: published, to the stored broker under the stored prefix.
    ASSERT_EQ(Cli({"settings", "set", "mqtt_enabled", "0"}).exitCode, 0);
    ASSERT_EQ(Cli({"poll", "--file", dir + "/structures.json", "--id", "1", "--cycles", "1", "--mqtt"}).exitCode, 0);
    ASSERT_TRUE(sub.WaitFor("gespeichert/Anlage 1/status offline"));
    EXPECT_EQ(sub.PayloadsOf("gespeichert/Anlage 1/status"), (std::vector<std::string>{"online", "offline"}));
    EXPECT_EQ(sub.PayloadsOf("gespeichert/Anlage 1/Int16").size(), 1u);
}

TEST_F(MqttBridge, MqttOptionsAreCheckedBeforeAnythingRuns) {
    const auto usage = [&](std::vector<std::string> args, const std::string& message) {
        args.insert(args.begin(), {"poll", "--file", dir + "/structures.json", "--id", "1"});
        const CommandResult r = Cli(args);
        EXPECT_EQ(r.exitCode, 2) << r.err;
        EXPECT_EQ(r.err.rfind("kestrel-cli: " + message + "\nusage:\n", 0), 0u) << r.err;
    };
    usage({"--mqtt-qos", "1"}, "--mqtt-qos needs --mqtt");
    usage({"--mqtt-retain"}, "--mqtt-retain needs --mqtt");
    usage({"--mqtt", "--mqtt-qos", "3"}, "--mqtt-qos must be a number from 0 to 2, not '3'");
    usage({"--mqtt", "--mqtt-prefix", "a/+/b"}, "the topic prefix must not contain the wildcards + or #: 'a/+/b'");
    usage({"--mqtt", "--mqtt-broker", "http://x"},
          "--mqtt-broker: unknown scheme in broker URL 'http://x' (tcp://, mqtt://, mqtts:// or ssl://)");
    usage({"--mqtt", "--mqtt-password-file", "/dev/null"},
          "--mqtt-password-file needs a user name (--mqtt-user or the stored mqtt_username)");
    usage({"--mqtt", "--mqtt-password", "x"}, "unknown option --mqtt-password");
}

}  // namespace
#endif
