#include "sim/fault_simulator.h"

#include <cstdio>

#include "protocol/frame_codec.h"

namespace sim {
namespace {

void PutCrc(Modbus::Bytes& frame) {
    if (frame.size() < 4) return;
    const uint16_t crc = Crc16(frame.data(), frame.size() - 2);
    frame[frame.size() - 2] = static_cast<uint8_t>(crc & 0xFF);
    frame[frame.size() - 1] = static_cast<uint8_t>(crc >> 8);
}

// Changes the frame as the fault says; false when the fault means no answer at all.
void Reshape(FaultKind fault, SlaveAnswer& answer, std::string& what) {
    Modbus::Bytes& frame = answer.frame;
    switch (fault) {
        case FaultKind::WrongUnit: {
            const size_t at = answer.isTcp ? 6 : 0;
            if (frame.size() <= at) return;
            frame[at] = OtherUnit(frame[at]);
            if (!answer.isTcp) PutCrc(frame);  // a sound frame, only for the wrong device
            what = " answered-unit=" + std::to_string(frame[at]);
            break;
        }
        case FaultKind::WrongTid: {
            if (frame.size() < 2) return;
            const uint16_t tid = OtherTransactionId(static_cast<uint16_t>((frame[0] << 8) | frame[1]));
            frame[0] = static_cast<uint8_t>(tid >> 8);
            frame[1] = static_cast<uint8_t>(tid & 0xFF);
            what = " answered-tid=" + std::to_string(tid);
            break;
        }
        case FaultKind::BadCrc: {
            if (frame.size() < 4) return;
            // Both CRC bytes inverted: never the right CRC, and easy to spot in a capture.
            frame[frame.size() - 2] ^= 0xFF;
            frame[frame.size() - 1] ^= 0xFF;
            char crc[16];
            std::snprintf(crc, sizeof crc, " crc=%02X%02X", frame[frame.size() - 2], frame[frame.size() - 1]);
            what = crc;
            break;
        }
        case FaultKind::Silence:
        case FaultKind::Drop: break;
    }
}

}  // namespace

FaultSimulator::FaultSimulator(FaultPlan plan, Report report, Sleep sleep)
    : plan(std::move(plan)), report(std::move(report)), sleep(std::move(sleep)), generator(this->plan.seed) {}

FaultSimulator::Decision FaultSimulator::Next() {
    std::lock_guard<std::mutex> lock(mutex);
    Decision decision;
    const uint32_t roll = static_cast<uint32_t>(generator()) % 100u;
    uint32_t upTo = 0;
    for (const FaultShare& share : plan.faults) {
        upTo += share.percent;
        if (roll < upTo) {
            decision.fault = share.kind;
            break;
        }
    }
    if (plan.jitter) {
        const uint64_t span = static_cast<uint64_t>(plan.jitterMaxMs) - plan.jitterMinMs + 1;
        decision.jitterMs = plan.jitterMinMs + static_cast<uint32_t>(static_cast<uint32_t>(generator()) % span);
    }
    return decision;
}

SlaveAnswerAction FaultSimulator::Apply(SlaveAnswer& answer) {
    const Decision decision = Next();
    const bool answers =
        !decision.fault || (*decision.fault != FaultKind::Silence && *decision.fault != FaultKind::Drop);
    std::string what;
    if (decision.fault) Reshape(*decision.fault, answer, what);
    if (decision.fault || plan.jitter) {
        std::string line = "Fault: ";
        line += decision.fault ? FaultName(*decision.fault) : "jitter";
        line += ' ';
        line += DescribeRequest(answer);
        line += what;
        if (plan.jitter && answers) line += " jitter=" + std::to_string(decision.jitterMs) + "ms";
        if (report) report(line);
    }
    if (!answers)
        return *decision.fault == FaultKind::Drop ? SlaveAnswerAction::CloseConnection : SlaveAnswerAction::Withhold;
    if (decision.jitterMs != 0 && sleep) sleep(decision.jitterMs);
    return SlaveAnswerAction::Send;
}

std::string DescribeRequest(const SlaveAnswer& answer) {
    if (answer.request == nullptr) return "unit=? fc=? address=?";
    const Modbus::Bytes& r = *answer.request;
    const size_t unitAt = answer.isTcp ? 6 : 0;
    if (r.size() < unitAt + 2) return "unit=? fc=? address=?";
    std::string text = "unit=" + std::to_string(r[unitAt]) + " fc=" + std::to_string(r[unitAt + 1]);
    // The address is the first PDU word; an RTU frame ends in two CRC bytes.
    const size_t addressAt = unitAt + 2;
    const size_t usable = answer.isTcp ? r.size() : r.size() - 2;
    if (usable >= addressAt + 2) text += " address=" + std::to_string((r[addressAt] << 8) | r[addressAt + 1]);
    if (answer.isTcp && r.size() >= 2) text += " tid=" + std::to_string((r[0] << 8) | r[1]);
    return text;
}

uint8_t OtherUnit(uint8_t unit) { return unit >= 255 ? 1 : static_cast<uint8_t>(unit + 1); }

uint16_t OtherTransactionId(uint16_t transactionId) { return static_cast<uint16_t>(transactionId ^ 0x8000); }

}  // namespace sim
