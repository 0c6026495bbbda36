// Request/response pairing of the bus monitor; the rules are in the header.
#include "monitor/bus_pairing.h"

#include <utility>

namespace Modbus {
namespace {

bool FitsLength(const FrameLength& length, size_t size) {
    return length.kind == LengthKind::Known && length.length == size;
}

}  // namespace

BusPairing::BusPairing(RecordSink sink) : sink_(std::move(sink)) {}

std::optional<std::pair<uint8_t, uint8_t>> BusPairing::ExpectedResponse() const {
    if (!pending_) return std::nullopt;
    return std::make_pair(pending_->record.unitId, pending_->record.functionCode);
}

bool BusPairing::AnswersPending(const SplitFrame& frame) const {
    if (!pending_ || frame.bytes.size() < 2) return false;
    const MonitorRecord& request = pending_->record;
    const uint8_t code = frame.bytes[1] & 0x7F;
    if (frame.bytes[0] != request.unitId || code != request.functionCode) return false;
    // FC05 and FC06 answer with an echo of the request; another frame of that code is a new request.
    const bool echo = (code == 5 || code == 6) && !(frame.bytes[1] & 0x80);
    return !echo || !frame.crcOk || frame.bytes == request.bytes;
}

FrameDirection BusPairing::DirectionOf(const SplitFrame& frame) const {
    const std::vector<uint8_t>& b = frame.bytes;
    if (b.size() < 2) return FrameDirection::Unknown;
    if (b[1] & 0x80) return FrameDirection::Response;
    const bool hasRule = HasLengthRule(b[1]);
    const bool fitsRequest = hasRule && FitsLength(RequestLength(b.data(), b.size()), b.size());
    const bool fitsResponse = hasRule && FitsLength(ResponseLength(b.data(), b.size()), b.size());
    if (AnswersPending(frame) && (fitsResponse || !hasRule)) return FrameDirection::Response;
    if (fitsRequest || !hasRule) return FrameDirection::Request;
    if (fitsResponse) return FrameDirection::Response;
    return FrameDirection::Unknown;
}

void BusPairing::Add(const SplitFrame& frame, int64_t wallUs) {
    MonitorRecord record;
    record.wallUs = wallUs;
    record.bytes = frame.bytes;
    record.unitId = frame.bytes.empty() ? 0 : frame.bytes[0];
    record.functionCode = frame.bytes.size() < 2 ? 0 : frame.bytes[1] & 0x7F;
    record.direction = DirectionOf(frame);
    if (!frame.crcOk) {
        // Counted only as a CRC error; it answers nothing and is answered by nothing.
        record.status = FrameStatus::CrcError;
        ++statistics_[record.unitId].crcErrors;
        Hold(std::move(record));
        return;
    }
    switch (record.direction) {
        case FrameDirection::Request: AddRequest(std::move(record), frame); break;
        case FrameDirection::Response: AddResponse(std::move(record), frame); break;
        case FrameDirection::Unknown: Hold(std::move(record)); break;
    }
}

void BusPairing::AddRequest(MonitorRecord record, const SplitFrame& frame) {
    ++statistics_[record.unitId].requests;
    if (pending_) ClosePending(FrameStatus::Unanswered);
    record.fields = DescribeRequest(record.bytes);
    const bool countsBits = record.functionCode == 1 || record.functionCode == 2;
    const auto count = static_cast<uint16_t>(countsBits ? record.fields.count : 0);
    pending_ = Pending{std::move(record), frame.lastByteUs, count};
}

void BusPairing::AddResponse(MonitorRecord record, const SplitFrame& frame) {
    UnitStatistics& statistics = statistics_[record.unitId];
    ++statistics.responses;
    if (frame.bytes[1] & 0x80) {
        ++statistics.exceptions;
        record.isException = true;
        record.exceptionCode = frame.bytes.size() > 2 ? frame.bytes[2] : 0;
        record.status = FrameStatus::Exception;
    }
    if (!AnswersPending(frame)) {
        record.fields = DescribeResponse(record.bytes, 0);
        Hold(std::move(record));
        return;
    }
    const int64_t elapsedUs = frame.firstByteUs - pending_->lastByteUs;
    record.hasResponseTime = true;
    record.responseMs = elapsedUs > 0 ? static_cast<double>(elapsedUs) / 1000.0 : 0.0;
    statistics.responseTimesMs.push_back(record.responseMs);
    record.fields = DescribeResponse(record.bytes, pending_->count);
    ClosePending(FrameStatus::Ok);
    sink_(record);
}

void BusPairing::Hold(MonitorRecord record) {
    if (pending_) {
        held_.push_back(std::move(record));
    } else {
        sink_(record);
    }
}

void BusPairing::ClosePending(FrameStatus status) {
    pending_->record.status = status;
    if (status == FrameStatus::Unanswered) ++statistics_[pending_->record.unitId].unanswered;
    sink_(pending_->record);
    pending_.reset();
    while (!held_.empty()) {
        sink_(held_.front());
        held_.pop_front();
    }
}

void BusPairing::Finish() {
    if (pending_) ClosePending(FrameStatus::Unanswered);
}

}  // namespace Modbus
