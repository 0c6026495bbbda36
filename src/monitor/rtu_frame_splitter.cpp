// The frame recovery of the bus monitor; the rules are in the header.
#include "monitor/rtu_frame_splitter.h"

#include <algorithm>

#include "monitor/frame_shapes.h"
#include "protocol/frame_codec.h"

namespace Modbus {
namespace {

int64_t BitsPerCharacter(uint8_t dataBits, char parity, uint8_t stopBits) {
    return 1 + dataBits + (parity == 'N' ? 0 : 1) + (stopBits == 2 ? 2 : 1);
}

}  // namespace

int64_t CharacterMicroseconds(uint32_t baud, uint8_t dataBits, char parity, uint8_t stopBits) {
    if (baud == 0) return 0;
    return BitsPerCharacter(dataBits, parity, stopBits) * 1000000 / baud;
}

int64_t SilenceMicroseconds(uint32_t baud, uint8_t dataBits, char parity, uint8_t stopBits) {
    if (baud > 19200 || baud == 0) return 1750;
    return BitsPerCharacter(dataBits, parity, stopBits) * 3500000 / baud;
}

RtuFrameSplitter::RtuFrameSplitter(int64_t silenceUs, int64_t characterUs, int64_t decisionUs)
    : silenceUs_(silenceUs), characterUs_(characterUs), decisionUs_(decisionUs) {}

void RtuFrameSplitter::Feed(const uint8_t* data, size_t length, int64_t arrivalUs) {
    if (length == 0) return;
    // The first byte of this read began (length - 1) characters before the read returned at the
    // earliest; the previous read's last byte ended when that read returned.
    const int64_t quiet = arrivalUs - lastArrivalUs_ - static_cast<int64_t>(length) * characterUs_;
    const bool silence = !seenAny_ || quiet >= silenceUs_;
    for (size_t i = 0; i < length; ++i) {
        bytes_.push_back(data[i]);
        arrivalUs_.push_back(arrivalUs);
        silenceBefore_.push_back(i == 0 && silence ? 1 : 0);
    }
    lastArrivalUs_ = arrivalUs;
    seenAny_ = true;
}

void RtuFrameSplitter::ExpectResponse(uint8_t unitId, uint8_t functionCode) {
    expected_ = std::make_pair(unitId, functionCode);
}

void RtuFrameSplitter::ExpectNothing() { expected_.reset(); }

bool RtuFrameSplitter::Next(int64_t nowUs, SplitFrame& frame) {
    const int64_t quiet = nowUs - lastArrivalUs_;
    return Decide(quiet >= silenceUs_, quiet >= decisionUs_, frame);
}

bool RtuFrameSplitter::NextAtEnd(SplitFrame& frame) { return Decide(true, true, frame); }

bool RtuFrameSplitter::Decide(bool tailQuiet, bool tailDone, SplitFrame& frame) {
    while (start_ < bytes_.size()) {
        const Match good = MatchAt(start_, tailQuiet, tailDone);
        if (good.outcome == Outcome::Good) {
            Emit(good.length, true, frame);
            return true;
        }
        if (good.outcome == Outcome::Incomplete) return false;
        const Match bad = MatchBadCrc(tailQuiet, tailDone);
        if (bad.outcome == Outcome::Good) {
            Emit(bad.length, false, frame);
            return true;
        }
        if (bad.outcome == Outcome::Incomplete) return false;
        ++start_;
        ++noiseBytes_;
    }
    Compact();
    return false;
}

RtuFrameSplitter::Match RtuFrameSplitter::MatchAt(size_t at, bool tailQuiet, bool tailDone) const {
    const size_t available = bytes_.size() - at;
    // Nothing there yet (a rule length that ends at the end of the data).
    if (available == 0) return {tailDone ? Outcome::None : Outcome::Incomplete, 0};
    // Unit ids above 247 are reserved and function code 0 does not exist: no frame starts there.
    if (!IsPlausibleUnitId(bytes_[at])) return {Outcome::None, 0};
    if (available < 2) return {tailDone ? Outcome::None : Outcome::Incomplete, 0};
    if ((bytes_[at + 1] & 0x7F) == 0) return {Outcome::None, 0};
    if (HasLengthRule(bytes_[at + 1] & 0x7F)) return MatchByLength(at, tailDone);
    return MatchByCrcAlone(at, tailQuiet, tailDone);
}

RtuFrameSplitter::Match RtuFrameSplitter::MatchByLength(size_t at, bool tailDone) const {
    const uint8_t* b = bytes_.data() + at;
    const size_t available = bytes_.size() - at;
    FrameLength rules[2];
    size_t count = 0;
    if (b[1] & 0x80) {
        rules[count++] = ResponseLength(b, available);
    } else if (expected_ && expected_->first == b[0] && expected_->second == b[1]) {
        rules[count++] = ResponseLength(b, available);
        rules[count++] = RequestLength(b, available);
    } else {
        rules[count++] = RequestLength(b, available);
        rules[count++] = ResponseLength(b, available);
    }
    bool incomplete = false;
    for (size_t i = 0; i < count; ++i) {
        const FrameLength& rule = rules[i];
        if (rule.kind == LengthKind::NeedMore || (rule.kind == LengthKind::Known && rule.length > available)) {
            if (rule.kind == LengthKind::NeedMore || rule.length <= kMaximumRtuFrame) incomplete = true;
            continue;
        }
        if (rule.kind != LengthKind::Known) continue;
        if (rule.length < kMinimumRtuFrame || rule.length > kMaximumRtuFrame) continue;
        if (CrcRight(at, rule.length)) return {Outcome::Good, rule.length};
    }
    return {incomplete && !tailDone ? Outcome::Incomplete : Outcome::None, 0};
}

RtuFrameSplitter::Match RtuFrameSplitter::MatchByCrcAlone(size_t at, bool tailQuiet, bool tailDone) const {
    const size_t available = bytes_.size() - at;
    const size_t longest = std::min(available, kMaximumRtuFrame);
    const uint8_t code = bytes_[at + 1] & 0x7F;
    // 08 and 2B are ordinary codes whose length we cannot tell: found anywhere, pauses inside allowed
    // (a USB adapter hands bytes over in slices). A code we do not know at all is believed only
    // between two silences: in a stream without gaps, random bytes would pass a CRC too often.
    const bool ordinary = code == 8 || code == 43;
    if (!ordinary && !silenceBefore_[at]) return {Outcome::None, 0};
    // A right CRC followed by something that is no frame (noise) is kept: it is the frame when no
    // better end turns up.
    size_t firstRight = 0;
    const auto giveUp = [&]() -> Match {
        return firstRight != 0 ? Match{Outcome::Good, firstRight} : Match{Outcome::None, 0};
    };
    uint16_t crc = 0xFFFF;
    for (size_t length = 1; length <= longest; ++length) {
        crc ^= bytes_[at + length - 1];
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? static_cast<uint16_t>((crc >> 1) ^ 0xA001) : crc >> 1;
        const size_t end = at + length;
        if (length >= kMinimumRtuFrame && crc == 0) {
            if (end == bytes_.size()) return {tailQuiet ? Outcome::Good : Outcome::Incomplete, length};
            if (silenceBefore_[end]) return {Outcome::Good, length};
            if (ordinary && PlausibleStartAt(end)) return {Outcome::Good, length};
            if (ordinary && firstRight == 0) firstRight = length;
        }
        if (!ordinary && SilenceAt(end, tailQuiet)) return {Outcome::None, 0};
    }
    if (firstRight != 0 && (tailQuiet || available >= kMaximumRtuFrame)) return {Outcome::Good, firstRight};
    if (available < kMaximumRtuFrame && !tailDone) return {Outcome::Incomplete, 0};
    return giveUp();
}

RtuFrameSplitter::Match RtuFrameSplitter::MatchBadCrc(bool tailQuiet, bool tailDone) const {
    const size_t at = start_;
    const uint8_t* b = bytes_.data() + at;
    const size_t available = bytes_.size() - at;
    if (available < kMinimumRtuFrame) return {Outcome::None, 0};
    if (!IsPlausibleUnitId(b[0]) || !IsPlausibleFunctionCode(b[1])) return {Outcome::None, 0};

    // A length of the rule that ends at a silence, or else exactly where a good frame begins. Noise
    // in front of a good frame can give a rule length that ends at that frame's end: no good frame
    // may begin inside.
    bool mayEndLater = false;
    if (HasLengthRule(b[1] & 0x7F)) {
        std::vector<size_t> lengths;
        for (const FrameLength& rule : {RequestLength(b, available), ResponseLength(b, available)}) {
            if (rule.kind == LengthKind::Known && rule.length >= kMinimumRtuFrame && rule.length <= available) {
                lengths.push_back(rule.length);
            }
        }
        for (size_t length : lengths) {
            if (SilenceAt(at + length, tailQuiet)) {
                return {GoodFrameInside(at, length) ? Outcome::None : Outcome::Good, length};
            }
        }
        for (size_t length : lengths) {
            const Match next = MatchAt(at + length, tailQuiet, tailDone);
            if (next.outcome == Outcome::Good) {
                return {GoodFrameInside(at, length) ? Outcome::None : Outcome::Good, length};
            }
            if (next.outcome == Outcome::Incomplete) mayEndLater = true;
        }
    }

    // The bytes up to the next silence, when they came after a silence.
    const Match segment = MatchSegment(at, tailQuiet, tailDone);
    if (segment.outcome == Outcome::Good || !mayEndLater) return segment;
    return {Outcome::Incomplete, 0};
}

RtuFrameSplitter::Match RtuFrameSplitter::MatchSegment(size_t at, bool tailQuiet, bool tailDone) const {
    const size_t available = bytes_.size() - at;
    const size_t longest = std::min(available, kMaximumRtuFrame);
    size_t end = 0;
    for (size_t length = 1; length <= longest; ++length) {
        if (SilenceAt(at + length, tailQuiet)) {
            end = length;
            break;
        }
    }
    if (end == 0) {
        // No silence yet: wait for one while a frame of up to 256 bytes may still end in it.
        return {available <= kMaximumRtuFrame && !tailDone ? Outcome::Incomplete : Outcome::None, 0};
    }
    if (end < kMinimumRtuFrame || !silenceBefore_[at] || GoodFrameInside(at, end)) return {Outcome::None, 0};
    return {Outcome::Good, end};
}

bool RtuFrameSplitter::GoodFrameInside(size_t at, size_t length) const {
    for (size_t inner = 1; inner < length; ++inner) {
        if (MatchAt(at + inner, true, true).outcome == Outcome::Good) return true;
    }
    return false;
}

bool RtuFrameSplitter::CrcRight(size_t at, size_t length) const {
    const uint16_t crc = Crc16(bytes_.data() + at, length - 2);
    return bytes_[at + length - 2] == (crc & 0xFF) && bytes_[at + length - 1] == (crc >> 8);
}

bool RtuFrameSplitter::SilenceAt(size_t at, bool tailQuiet) const {
    if (at == bytes_.size()) return tailQuiet;
    return at < bytes_.size() && silenceBefore_[at] != 0;
}

bool RtuFrameSplitter::PlausibleStartAt(size_t at) const {
    if (!IsPlausibleUnitId(bytes_[at])) return false;
    return at + 1 >= bytes_.size() || IsPlausibleFunctionCode(bytes_[at + 1]);
}

void RtuFrameSplitter::Emit(size_t length, bool crcOk, SplitFrame& frame) {
    frame.bytes.assign(bytes_.begin() + static_cast<long>(start_), bytes_.begin() + static_cast<long>(start_ + length));
    frame.crcOk = crcOk;
    frame.firstByteUs = arrivalUs_[start_];
    frame.lastByteUs = arrivalUs_[start_ + length - 1];
    start_ += length;
    Compact();
}

void RtuFrameSplitter::Compact() {
    // Drop decided bytes once they are many, so a long capture does not grow the buffers.
    if (start_ < 4096 || start_ * 2 < bytes_.size()) return;
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<long>(start_));
    arrivalUs_.erase(arrivalUs_.begin(), arrivalUs_.begin() + static_cast<long>(start_));
    silenceBefore_.erase(silenceBefore_.begin(), silenceBefore_.begin() + static_cast<long>(start_));
    start_ = 0;
}

}  // namespace Modbus
