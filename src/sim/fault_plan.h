#pragma once
// The faults a simulated device plays, as the command line asks for them: each a share of the
// requests in percent, plus an optional random extra delay, all drawn from one seeded generator.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace sim {

enum class FaultKind {
    Silence,    // no answer
    Drop,       // the TCP connection closed instead of an answer
    WrongUnit,  // the answer carries another unit id
    BadCrc,     // the RTU answer carries a wrong CRC
    WrongTid,   // the TCP answer carries another transaction id
};

struct FaultShare {
    FaultKind kind = FaultKind::Silence;
    uint32_t percent = 0;  // 0..100
};

struct FaultPlan {
    std::vector<FaultShare> faults;  // in the order given; their percentages add up to at most 100
    bool jitter = false;
    uint32_t jitterMinMs = 0;
    uint32_t jitterMaxMs = 0;
    uint32_t seed = 0;

    bool Empty() const { return faults.empty() && !jitter; }
};

// "silence", "drop", "wrong-unit", "bad-crc", "wrong-tid".
const char* FaultName(FaultKind kind);
std::optional<FaultKind> ParseFaultName(const std::string& name);

// Adds "NAME:P" to the plan. An error text (empty when fine) for an unknown name, a percentage
// that is not 0..100, a fault given twice or a total above 100.
std::string AddFault(FaultPlan& plan, const std::string& text);
// "MIN-MAX" in milliseconds, MIN <= MAX. An error text, empty when fine.
std::string SetJitter(FaultPlan& plan, const std::string& text);
// Faults the transport cannot have: drop and wrong-tid need TCP framing, bad-crc RTU framing. An
// error text naming the first such fault, empty when every fault fits.
std::string CheckTransport(const FaultPlan& plan, bool tcpFraming, bool tcpConnection);

}  // namespace sim
