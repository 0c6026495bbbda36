#include "sim/fault_plan.h"

#include <charconv>

namespace sim {
namespace {

constexpr FaultKind kKinds[] = {FaultKind::Silence, FaultKind::Drop, FaultKind::WrongUnit, FaultKind::BadCrc,
                                FaultKind::WrongTid};

std::optional<uint32_t> WholeNumber(const std::string& text) {
    uint32_t value = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (text.empty() || result.ec != std::errc() || result.ptr != end) return std::nullopt;
    return value;
}

}  // namespace

const char* FaultName(FaultKind kind) {
    switch (kind) {
        case FaultKind::Silence: return "silence";
        case FaultKind::Drop: return "drop";
        case FaultKind::WrongUnit: return "wrong-unit";
        case FaultKind::BadCrc: return "bad-crc";
        case FaultKind::WrongTid: return "wrong-tid";
    }
    return "?";
}

std::optional<FaultKind> ParseFaultName(const std::string& name) {
    for (FaultKind kind : kKinds) {
        if (name == FaultName(kind)) return kind;
    }
    return std::nullopt;
}

std::string AddFault(FaultPlan& plan, const std::string& text) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) {
        return "--fault must look like NAME:PERCENT (silence, drop, wrong-unit, bad-crc, wrong-tid), not '" + text +
               "'";
    }
    const auto kind = ParseFaultName(text.substr(0, colon));
    if (!kind) {
        return "--fault: unknown fault '" + text.substr(0, colon) +
               "' (silence, drop, wrong-unit, bad-crc or wrong-tid)";
    }
    const auto percent = WholeNumber(text.substr(colon + 1));
    if (!percent || *percent > 100) {
        return "--fault: the percentage must be a whole number 0..100, not '" + text.substr(colon + 1) + "'";
    }
    uint32_t total = *percent;
    for (const FaultShare& share : plan.faults) {
        if (share.kind == *kind) return std::string("--fault ") + FaultName(*kind) + " is given twice";
        total += share.percent;
    }
    if (total > 100) return "--fault: the percentages add up to " + std::to_string(total) + ", more than 100";
    plan.faults.push_back({*kind, *percent});
    return "";
}

std::string SetJitter(FaultPlan& plan, const std::string& text) {
    const size_t dash = text.find('-');
    const auto low = dash == std::string::npos ? std::nullopt : WholeNumber(text.substr(0, dash));
    const auto high = dash == std::string::npos ? std::nullopt : WholeNumber(text.substr(dash + 1));
    if (!low || !high || *low > 600000 || *high > 600000) {
        return "--jitter must look like MIN-MAX in milliseconds (0..600000), not '" + text + "'";
    }
    if (*low > *high) return "--jitter MIN must not be above MAX in '" + text + "'";
    plan.jitter = true;
    plan.jitterMinMs = *low;
    plan.jitterMaxMs = *high;
    return "";
}

std::string CheckTransport(const FaultPlan& plan, bool tcpFraming, bool tcpConnection) {
    for (const FaultShare& share : plan.faults) {
        const bool fits = share.kind == FaultKind::Drop       ? tcpConnection
                          : share.kind == FaultKind::WrongTid ? tcpFraming
                          : share.kind == FaultKind::BadCrc   ? !tcpFraming
                                                              : true;
        if (!fits) {
            const char* why = share.kind == FaultKind::BadCrc ? "only an RTU frame carries a CRC"
                              : share.kind == FaultKind::Drop ? "only a TCP connection can be dropped"
                                                              : "only a Modbus TCP frame carries a transaction id";
            return std::string("--fault ") + FaultName(share.kind) + " cannot be played here: " + why;
        }
    }
    return "";
}

}  // namespace sim
