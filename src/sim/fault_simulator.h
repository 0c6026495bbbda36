#pragma once
// Plays the faults of a plan on a slave's responses: installed as the slave's response filter, it
// decides for every response whether and how to misbehave, changes the frame accordingly, waits
// the jitter and reports every fault it plays as one "Fault: " line.
//
// The sequence is reproducible: one std::mt19937 (the 32-bit Mersenne Twister of the C++ standard,
// whose output is the same on every platform) seeded with the plan's seed. For every response it
// draws one number r and takes r % 100 as the roll; the faults, in the order they were given,
// claim consecutive ranges of the roll (silence:10 then drop:5 gives silence for 0..9, drop for
// 10..14, no fault for 15..99). With a jitter it then draws one more number j and delays the answer
// by MIN + j % (MAX - MIN + 1) ms. The generator lives as long as the simulator, so the sequence
// runs on across client connections.
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <random>
#include <string>

#include "protocol/modbus_client.h"
#include "sim/fault_plan.h"

namespace sim {

class FaultSimulator {
public:
    using Report = std::function<void(const std::string&)>;
    using Sleep = std::function<void(uint32_t milliseconds)>;

    FaultSimulator(FaultPlan plan, Report report, Sleep sleep);

    // The response filter: decide, reshape, report, delay.
    SlaveAnswerAction Apply(SlaveAnswer& answer);

    // The next draw, without a response (for tests of the sequence).
    struct Decision {
        std::optional<FaultKind> fault;
        uint32_t jitterMs = 0;
    };
    Decision Next();

private:
    FaultPlan plan;
    Report report;
    Sleep sleep;
    std::mutex mutex;  // one generator, whichever server thread asks
    std::mt19937 generator;
};

// "unit=1 fc=3 address=100 tid=7": the request a response answers, as the "Fault: " line names it
// (no tid on RTU, no address for a request too short to carry one).
std::string DescribeRequest(const SlaveAnswer& answer);
// The unit id a wrong-unit answer carries: the next one, 255 wrapping to 1 (never 0, the
// broadcast address).
uint8_t OtherUnit(uint8_t unit);
// The transaction id a wrong-tid answer carries: the request's with its top bit flipped, far from
// any id a master is about to use.
uint16_t OtherTransactionId(uint16_t transactionId);

}  // namespace sim
