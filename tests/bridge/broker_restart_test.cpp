// The broker goes away while kestrel-cli polls and bridges at QoS 1, and comes back: nothing
// produced in between is lost and the order holds; with a small queue bound the oldest messages are
// dropped and the count is reported. The subscriber keeps a persistent session (and the broker
// its persistence file), so it misses nothing of what reached the broker, also while both were
// restarting. Native only.
#if !defined(_WIN32)
#include <gtest/gtest.h>

#include <regex>

#include "bridge/broker_fixture.h"
#include "model/structure_store.h"
#include "protocol/modbus_client.h"

namespace {

using bridgetest::Broker;
using bridgetest::Subscriber;

const std::string kCounterTopic = "werk/Zaehlwerk/Zaehler";
const std::string kLevelTopic = "werk/Zaehlwerk/Stand";

class BrokerRestart : public testing::Test {
protected:
    void SetUp() override {
        dir = MakeTempDir();
        ConnectionConfig config;
        config.role = 1;
        config.port = 0;
        ASSERT_TRUE(slave.Connect(config));
        slave.Image().SetHoldingRegisters(0, {7, 8});
        ModbusStructure s;
        s.name = "Zaehlwerk";
        s.ip = "127.0.0.1";
        s.port = slave.ListeningPort();
        Modbus::ModbusDetail counter;
        counter.name = "Zaehler";
        Modbus::ModbusDetail level;
        level.name = "Stand";
        level.registerAddress = 1;
        s.details = {counter, level};
        StructureStore store(dir + "/structures.json");
        store.AddStructure(s);
        ASSERT_TRUE(store.SaveStructures());
        RunCommand({"mkdir", "-p", dir + "/persistence"});
    }
    void TearDown() override {
        slave.Disconnect();
        RunCommand({"rm", "-rf", dir});
    }

    std::vector<std::string> Poll(const Broker& broker, uint32_t cycles, std::vector<std::string> more = {}) const {
        std::vector<std::string> argv = {"env",          "XDG_CONFIG_HOME=" + dir + "/config",
                                         KESTREL_CLI_PATH, "--lang", "en", "poll", "--file", dir + "/structures.json",
                                         "--id",         "1", "--interval", "100", "--cycles", std::to_string(cycles),
                                         "--mqtt",       "--mqtt-broker", broker.Url(), "--mqtt-prefix", "werk",
                                         "--mqtt-qos",   "1", "--mqtt-client-id", "kestrel-restart"};
        argv.insert(argv.end(), more.begin(), more.end());
        return argv;
    }

    std::string BrokerConfig() const {
        return "allow_anonymous true\npersistence true\npersistence_location " + dir + "/persistence/\n";
    }

    // Polls while the broker is stopped for about two seconds, then started again.
    void PollThroughABrokerRestart(Broker& broker, Subscriber& sub, ChildProcess& bridge) {
        ASSERT_TRUE(sub.WaitFor(kCounterTopic + " {", 10000));
        broker.Stop();
        ASSERT_TRUE(bridge.WaitForOutput("; reconnecting\n", 10000, true)) << bridge.Stderr();
        // The bridge keeps polling (and queueing) meanwhile: twenty cycles at 100 ms.
        const size_t printed = bridge.Stdout().size();
        std::this_thread::sleep_for(std::chrono::milliseconds(2000));
        EXPECT_GT(bridge.Stdout().size(), printed);
        ASSERT_TRUE(broker.Start());
        ASSERT_EQ(bridge.Wait(30000), 0) << bridge.Stderr();
        ASSERT_TRUE(sub.WaitFor("werk/Zaehlwerk/status offline", 10000)) << sub.child->Stdout();
    }

    // The payloads of a topic without the repeats a QoS 1 resend may cause; checks that their times
    // strictly increase (every cycle stamps its values once).
    static std::vector<std::string> Distinct(const std::vector<std::string>& payloads) {
        std::vector<std::string> distinct;
        std::string lastTime;
        for (const std::string& payload : payloads) {
            if (!distinct.empty() && distinct.back() == payload) continue;
            const std::string time = payload.substr(payload.find("\"time\""));
            EXPECT_GT(time, lastTime) << payload;
            lastTime = time;
            distinct.push_back(payload);
        }
        return distinct;
    }

    std::string dir;
    ModbusClient slave;
};

TEST_F(BrokerRestart, AtQos1NothingProducedWhileTheBrokerWasAwayIsLost) {
    Broker broker(dir, BrokerConfig());
    Subscriber sub(broker, "werk/#", {"-c", "-i", "restart-subscriber"});
    ASSERT_TRUE(sub.WaitSubscribed("werk/probe"));
    ChildProcess bridge(Poll(broker, 40));
    PollThroughABrokerRestart(broker, sub, bridge);

    // Every one of the 40 cycles arrived, in order, for both details.
    const auto counter = Distinct(sub.PayloadsOf(kCounterTopic));
    const auto level = Distinct(sub.PayloadsOf(kLevelTopic));
    EXPECT_EQ(counter.size(), 40u) << sub.child->Stdout();
    EXPECT_EQ(level.size(), 40u);
    for (const std::string& payload : counter) EXPECT_EQ(payload.rfind(R"({"value": 7, "text": "7",)", 0), 0u);
    const std::string label = "127.0.0.1:" + std::to_string(broker.port);
    const std::string err = bridge.Stderr();
    EXPECT_EQ(err.find("MQTT: connected to " + label + "\n"), 0u) << err;
    EXPECT_NE(err.find("MQTT: connection to " + label + " lost ("), std::string::npos) << err;
    EXPECT_EQ(err.rfind("MQTT: connected to " + label + "\n"), err.find("MQTT: connected to " + label + "\n", 1));
    EXPECT_EQ(err.find("dropped"), std::string::npos) << err;
}

TEST_F(BrokerRestart, PastTheQueueBoundTheOldestAreDroppedAndCounted) {
    Broker broker(dir, BrokerConfig());
    Subscriber sub(broker, "werk/#", {"-c", "-i", "bound-subscriber"});
    ASSERT_TRUE(sub.WaitSubscribed("werk/probe"));
    ChildProcess bridge(Poll(broker, 40, {"--mqtt-queue", "6"}));
    PollThroughABrokerRestart(broker, sub, bridge);

    const std::string err = bridge.Stderr();
    std::smatch match;
    const std::regex line("MQTT: the queue held its limit of 6 messages while the broker was away: (\\d+) oldest "
                          "dropped\n");
    ASSERT_TRUE(std::regex_search(err, match, line)) << err;
    const size_t dropped = std::stoul(match[1]);
    EXPECT_GT(dropped, 10u);  // some 20 cycles of 2 values went into a queue of 6
    // Reported once.
    EXPECT_EQ(err.find("dropped"), err.rfind("dropped"));
    // What arrived and what was dropped are all that were produced: 40 cycles of 2 values.
    const size_t arrived = Distinct(sub.PayloadsOf(kCounterTopic)).size() + Distinct(sub.PayloadsOf(kLevelTopic)).size();
    EXPECT_EQ(arrived + dropped, 80u) << err << sub.child->Stdout();
}

}  // namespace
#endif
