// The fault simulator: its seeded draw, the frames it reshapes, the lines it reports, and the one
// place it sits in a real slave (a TCP slave of our own on loopback).
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>

#include "sim/fault_simulator.h"
#include "slave/slave_test_support.h"

using namespace sim;
using namespace slavetest;

namespace {

FaultPlan Plan(std::initializer_list<const char*> faults, uint32_t seed) {
    FaultPlan plan;
    for (const char* f : faults) EXPECT_EQ(AddFault(plan, f), "");
    plan.seed = seed;
    return plan;
}

std::vector<std::string> Sequence(const FaultPlan& plan, size_t n) {
    FaultSimulator simulator(plan, nullptr, nullptr);
    std::vector<std::string> names;
    for (size_t i = 0; i < n; ++i) {
        const auto decision = simulator.Next();
        names.push_back(decision.fault ? FaultName(*decision.fault) : "-");
    }
    return names;
}

TEST(FaultSimulatorTest, TheDrawIsTheMersenneTwisterRollInTheOrderGiven) {
    const FaultPlan plan = Plan({"silence:10", "drop:20"}, 1234);
    std::mt19937 reference(1234);
    FaultSimulator simulator(plan, nullptr, nullptr);
    for (int i = 0; i < 1000; ++i) {
        const uint32_t roll = static_cast<uint32_t>(reference()) % 100u;
        const auto decision = simulator.Next();
        if (roll < 10) {
            EXPECT_EQ(decision.fault, FaultKind::Silence) << i;
        } else if (roll < 30) {
            EXPECT_EQ(decision.fault, FaultKind::Drop) << i;
        } else {
            EXPECT_EQ(decision.fault, std::nullopt) << i;
        }
    }
}

TEST(FaultSimulatorTest, ASeedGivesTheSameSequenceAndAboutItsShare) {
    const FaultPlan plan = Plan({"wrong-unit:30"}, 77);
    const auto first = Sequence(plan, 10000);
    EXPECT_EQ(Sequence(plan, 10000), first);
    EXPECT_NE(Sequence(Plan({"wrong-unit:30"}, 78), 10000), first);
    const auto played = std::count(first.begin(), first.end(), "wrong-unit");
    EXPECT_GT(played, 2700);
    EXPECT_LT(played, 3300);
    const auto always = Sequence(Plan({"silence:100"}, 5), 500);
    EXPECT_EQ(std::count(always.begin(), always.end(), "silence"), 500);
    const auto never = Sequence(Plan({"silence:0"}, 5), 500);
    EXPECT_EQ(std::count(never.begin(), never.end(), "-"), 500);
}

TEST(FaultSimulatorTest, JitterStaysInsideItsBounds) {
    FaultPlan plan;
    ASSERT_EQ(SetJitter(plan, "20-23"), "");
    plan.seed = 9;
    FaultSimulator simulator(plan, nullptr, nullptr);
    std::set<uint32_t> seen;
    for (int i = 0; i < 400; ++i) {
        const auto decision = simulator.Next();
        EXPECT_EQ(decision.fault, std::nullopt);
        seen.insert(decision.jitterMs);
    }
    EXPECT_EQ(seen, (std::set<uint32_t>{20, 21, 22, 23}));
}

struct Played {
    SlaveAnswerAction action;
    std::string frame;
    std::vector<std::string> lines;
    std::vector<uint32_t> sleeps;
};

Played Play(const char* fault, bool isTcp, const std::string& request, const std::string& response,
            const char* jitter = nullptr) {
    FaultPlan plan = Plan({fault}, 1);
    if (jitter != nullptr) {
        EXPECT_EQ(SetJitter(plan, jitter), "");
    }
    Played played;
    FaultSimulator simulator(
        plan, [&](const std::string& line) { played.lines.push_back(line); },
        [&](uint32_t ms) { played.sleeps.push_back(ms); });
    const Bytes requestFrame = Hex(request);
    SlaveAnswer answer{isTcp, INVALID_SOCKET, &requestFrame, Hex(response)};
    played.action = simulator.Apply(answer);
    played.frame = ToHex(answer.frame);
    return played;
}

TEST(FaultSimulatorTest, EachFaultReshapesTheFrameAndSaysSo) {
    Played p =
        Play("silence:100", true, "00 07 00 00 00 06 01 03 00 64 00 02", "00 07 00 00 00 07 01 03 04 00 01 00 02");
    EXPECT_EQ(p.action, SlaveAnswerAction::Withhold);
    EXPECT_EQ(p.lines, (std::vector<std::string>{"Fault: silence unit=1 fc=3 address=100 tid=7"}));

    p = Play("drop:100", true, "00 07 00 00 00 06 01 03 00 64 00 02", "00 07 00 00 00 07 01 03 04 00 01 00 02");
    EXPECT_EQ(p.action, SlaveAnswerAction::CloseConnection);
    EXPECT_EQ(p.lines, (std::vector<std::string>{"Fault: drop unit=1 fc=3 address=100 tid=7"}));

    p = Play("wrong-unit:100", true, "00 07 00 00 00 06 01 03 00 64 00 02", "00 07 00 00 00 07 01 03 04 00 01 00 02");
    EXPECT_EQ(p.action, SlaveAnswerAction::Send);
    EXPECT_EQ(p.frame, "00 07 00 00 00 07 02 03 04 00 01 00 02");
    EXPECT_EQ(p.lines, (std::vector<std::string>{"Fault: wrong-unit unit=1 fc=3 address=100 tid=7 answered-unit=2"}));

    p = Play("wrong-tid:100", true, "00 07 00 00 00 06 01 06 00 05 00 2A", "00 07 00 00 00 06 01 06 00 05 00 2A");
    EXPECT_EQ(p.frame, "80 07 00 00 00 06 01 06 00 05 00 2A");
    EXPECT_EQ(p.lines, (std::vector<std::string>{"Fault: wrong-tid unit=1 fc=6 address=5 tid=7 answered-tid=32775"}));

    // RTU: the wrong unit gets a sound CRC of its own, a bad CRC is the right one inverted.
    p = Play("wrong-unit:100", false, "01 03 00 00 00 02 C4 0B", "01 03 04 12 34 56 78 81 07");
    EXPECT_EQ(p.frame, HexDump(BuildRtuRequest(2, 3, Hex("04 12 34 56 78"))));
    EXPECT_EQ(p.lines, (std::vector<std::string>{"Fault: wrong-unit unit=1 fc=3 address=0 answered-unit=2"}));
    p = Play("bad-crc:100", false, "01 03 00 00 00 02 C4 0B", "01 03 04 12 34 56 78 81 07", "3-3");
    EXPECT_EQ(p.frame, "01 03 04 12 34 56 78 7E F8");
    EXPECT_EQ(p.lines, (std::vector<std::string>{"Fault: bad-crc unit=1 fc=3 address=0 crc=7EF8 jitter=3ms"}));
    EXPECT_EQ(p.sleeps, (std::vector<uint32_t>{3}));
    EXPECT_FALSE(HasValidCrc(Hex(p.frame)));
}

TEST(FaultSimulatorTest, OnlyJitterIsReportedToo) {
    const Played p = Play("silence:0", true, "00 01 00 00 00 02 01 2B", "00 01 00 00 00 03 01 AB 01", "7-7");
    EXPECT_EQ(p.action, SlaveAnswerAction::Send);
    EXPECT_EQ(p.frame, "00 01 00 00 00 03 01 AB 01");
    EXPECT_EQ(p.lines, (std::vector<std::string>{"Fault: jitter unit=1 fc=43 tid=1 jitter=7ms"}));
    EXPECT_EQ(p.sleeps, (std::vector<uint32_t>{7}));
    const Played quiet = Play("silence:0", true, "00 01 00 00 00 02 01 2B", "00 01 00 00 00 03 01 AB 01");
    EXPECT_TRUE(quiet.lines.empty());
    EXPECT_TRUE(quiet.sleeps.empty());
}

TEST(FaultSimulatorTest, OtherIdsNeverTheBroadcastOrTheSame) {
    EXPECT_EQ(OtherUnit(1), 2);
    EXPECT_EQ(OtherUnit(247), 248);
    EXPECT_EQ(OtherUnit(255), 1);
    EXPECT_EQ(OtherUnit(0), 1);
    EXPECT_EQ(OtherTransactionId(0), 0x8000);
    EXPECT_EQ(OtherTransactionId(0x8001), 1);
}

// In a real slave: the filter sees every response with its request, and what it returns is what
// the client gets.
TEST(FaultSimulatorTest, InsideARealTcpSlave) {
    SetEnglish(true);
    ModbusClient slave;
    LogCapture log(slave);
    slave.Image().SetInputRegisters(0, {0x0102, 0x0304});
    std::vector<std::string> faults;
    FaultSimulator simulator(
        Plan({"wrong-tid:100"}, 3), [&](const std::string& line) { faults.push_back(line); }, nullptr);
    slave.SetResponseFilter([&](SlaveAnswer& answer) { return simulator.Apply(answer); });
    ASSERT_TRUE(slave.Connect(TcpSlaveConfig()));
    {
        TestClient client(slave.ListeningPort());
        EXPECT_EQ(ToHex(client.Exchange(Hex("12 34 00 00 00 06 01 04 00 00 00 02"))),
                  "92 34 00 00 00 07 01 04 04 01 02 03 04");
        // A request that gets no answer is never drawn for.
        ASSERT_TRUE(client.Send(Hex("12 35 00 00 00 06 05 04 00 00 00 02")));
        EXPECT_EQ(client.Await(200), TestClient::Result::Silent);
    }
    slave.Disconnect();
    EXPECT_EQ(faults, (std::vector<std::string>{"Fault: wrong-tid unit=1 fc=4 address=0 tid=4660 answered-tid=37428"}));
    EXPECT_TRUE(log.Contains("TX: 92 34 00 00 00 07 01 04 04 01 02 03 04"));
}

TEST(FaultSimulatorTest, ADropClosesTheClientAndTheSlaveServesTheNext) {
    SetEnglish(true);
    ModbusClient slave;
    LogCapture log(slave);
    FaultSimulator simulator(Plan({"drop:100"}, 3), nullptr, nullptr);
    slave.SetResponseFilter([&](SlaveAnswer& answer) { return simulator.Apply(answer); });
    ASSERT_TRUE(slave.Connect(TcpSlaveConfig()));
    for (int round = 0; round < 2; ++round) {
        TestClient client(slave.ListeningPort());
        ASSERT_TRUE(client.Send(Hex("00 01 00 00 00 06 01 03 00 00 00 01")));
        EXPECT_EQ(client.Await(2000), TestClient::Result::Closed) << round;
        ASSERT_TRUE(WaitForLine(log, "Client disconnected."));
        log.Clear();
    }
    slave.Disconnect();
}

}  // namespace
