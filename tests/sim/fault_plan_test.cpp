// The fault options as the command line takes them: names, percentages, their sum, the jitter and
// which faults a transport can play.
#include <gtest/gtest.h>

#include "sim/fault_plan.h"

using namespace sim;

namespace {

TEST(FaultPlanTest, TakesEveryFaultByName) {
    FaultPlan plan;
    EXPECT_EQ(AddFault(plan, "silence:10"), "");
    EXPECT_EQ(AddFault(plan, "drop:5"), "");
    EXPECT_EQ(AddFault(plan, "wrong-unit:20"), "");
    EXPECT_EQ(AddFault(plan, "bad-crc:0"), "");
    EXPECT_EQ(AddFault(plan, "wrong-tid:65"), "");
    ASSERT_EQ(plan.faults.size(), 5u);
    EXPECT_EQ(plan.faults[0].kind, FaultKind::Silence);
    EXPECT_EQ(plan.faults[0].percent, 10u);
    EXPECT_EQ(plan.faults[4].kind, FaultKind::WrongTid);
    EXPECT_EQ(plan.faults[4].percent, 65u);
    EXPECT_FALSE(plan.Empty());
    for (FaultKind kind :
         {FaultKind::Silence, FaultKind::Drop, FaultKind::WrongUnit, FaultKind::BadCrc, FaultKind::WrongTid}) {
        EXPECT_EQ(ParseFaultName(FaultName(kind)), kind);
    }
    EXPECT_EQ(ParseFaultName("Silence"), std::nullopt);
}

TEST(FaultPlanTest, RefusesWhatCannotBePlayed) {
    FaultPlan plan;
    EXPECT_EQ(AddFault(plan, "silence"),
              "--fault must look like NAME:PERCENT (silence, drop, wrong-unit, bad-crc, wrong-tid), not 'silence'");
    EXPECT_EQ(AddFault(plan, "noise:5"),
              "--fault: unknown fault 'noise' (silence, drop, wrong-unit, bad-crc or wrong-tid)");
    EXPECT_EQ(AddFault(plan, "drop:101"), "--fault: the percentage must be a whole number 0..100, not '101'");
    EXPECT_EQ(AddFault(plan, "drop:-1"), "--fault: the percentage must be a whole number 0..100, not '-1'");
    EXPECT_EQ(AddFault(plan, "drop:2.5"), "--fault: the percentage must be a whole number 0..100, not '2.5'");
    EXPECT_EQ(AddFault(plan, "drop:"), "--fault: the percentage must be a whole number 0..100, not ''");
    EXPECT_TRUE(plan.faults.empty());
    EXPECT_EQ(AddFault(plan, "drop:60"), "");
    EXPECT_EQ(AddFault(plan, "drop:10"), "--fault drop is given twice");
    EXPECT_EQ(AddFault(plan, "silence:41"), "--fault: the percentages add up to 101, more than 100");
    EXPECT_EQ(AddFault(plan, "silence:40"), "");
    EXPECT_EQ(plan.faults.size(), 2u);
}

TEST(FaultPlanTest, Jitter) {
    FaultPlan plan;
    EXPECT_TRUE(plan.Empty());
    EXPECT_EQ(SetJitter(plan, "5-1"), "--jitter MIN must not be above MAX in '5-1'");
    EXPECT_EQ(SetJitter(plan, "5"), "--jitter must look like MIN-MAX in milliseconds (0..600000), not '5'");
    EXPECT_EQ(SetJitter(plan, "a-9"), "--jitter must look like MIN-MAX in milliseconds (0..600000), not 'a-9'");
    EXPECT_EQ(SetJitter(plan, "0-600001"),
              "--jitter must look like MIN-MAX in milliseconds (0..600000), not '0-600001'");
    EXPECT_TRUE(plan.Empty());
    EXPECT_EQ(SetJitter(plan, "20-80"), "");
    EXPECT_TRUE(plan.jitter);
    EXPECT_EQ(plan.jitterMinMs, 20u);
    EXPECT_EQ(plan.jitterMaxMs, 80u);
    EXPECT_FALSE(plan.Empty());
}

TEST(FaultPlanTest, FaultsTheTransportCannotHave) {
    FaultPlan tcpOnly;
    AddFault(tcpOnly, "silence:1");
    AddFault(tcpOnly, "wrong-unit:1");
    AddFault(tcpOnly, "drop:1");
    AddFault(tcpOnly, "wrong-tid:1");
    EXPECT_EQ(CheckTransport(tcpOnly, true, true), "");
    EXPECT_EQ(CheckTransport(tcpOnly, false, false),
              "--fault drop cannot be played here: only a TCP connection can be dropped");
    // RTU frames on a TCP connection: a drop fits, a transaction id does not.
    EXPECT_EQ(CheckTransport(tcpOnly, false, true),
              "--fault wrong-tid cannot be played here: only a Modbus TCP frame carries a transaction id");
    FaultPlan crc;
    AddFault(crc, "bad-crc:100");
    EXPECT_EQ(CheckTransport(crc, false, false), "");
    EXPECT_EQ(CheckTransport(crc, false, true), "");
    EXPECT_EQ(CheckTransport(crc, true, true),
              "--fault bad-crc cannot be played here: only an RTU frame carries a CRC");
}

}  // namespace
