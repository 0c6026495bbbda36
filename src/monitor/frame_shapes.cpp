// Frame lengths and fields by function code. Lengths count the whole RTU frame: unit id, function
// code, data and the two CRC bytes.
#include "monitor/frame_shapes.h"

namespace Modbus {
namespace {

uint16_t Word(const std::vector<uint8_t>& frame, size_t at) {
    return static_cast<uint16_t>((frame[at] << 8) | frame[at + 1]);
}

FrameLength Fixed(size_t length) { return {LengthKind::Known, length}; }

// A length of `base` + the byte count at `countAt`.
FrameLength Counted(const uint8_t* bytes, size_t available, size_t countAt, size_t base) {
    if (available <= countAt) return {LengthKind::NeedMore, 0};
    return {LengthKind::Known, base + bytes[countAt]};
}

void AddWords(const std::vector<uint8_t>& frame, size_t from, size_t words, FrameFields& fields) {
    for (size_t i = 0; i < words && from + 2 * i + 1 < frame.size() - 2; ++i) {
        fields.values.push_back(Word(frame, from + 2 * i));
    }
}

void AddBits(const std::vector<uint8_t>& frame, size_t from, size_t bits, FrameFields& fields) {
    for (size_t i = 0; i < bits && from + i / 8 < frame.size() - 2; ++i) {
        fields.values.push_back((frame[from + i / 8] >> (i % 8)) & 1u);
    }
}

// FF00 is on and 0000 off; any other word is shown as it is.
uint32_t CoilValue(uint16_t word) { return word == 0xFF00 ? 1u : word == 0x0000 ? 0u : word; }

// Address and count in the first two words, as reads and multiple writes ask for them.
void SetAddressAndCount(const std::vector<uint8_t>& frame, FrameFields& f) {
    f.hasAddress = f.hasCount = true;
    f.address = Word(frame, 2);
    f.count = Word(frame, 4);
}

// FC05 and FC06: the address and the value written; the response echoes the request.
void SetSingleWrite(const std::vector<uint8_t>& frame, FrameFields& f) {
    f.hasAddress = true;
    f.address = Word(frame, 2);
    f.values.push_back(frame[1] == 5 ? CoilValue(Word(frame, 4)) : Word(frame, 4));
}

}  // namespace

bool HasLengthRule(uint8_t functionCode) {
    switch (functionCode) {
        case 1: case 2: case 3: case 4: case 5: case 6: case 7: case 11: case 12: case 15: case 16: case 17:
        case 20: case 21: case 22: case 23: case 24:
            return true;
        default:
            return false;
    }
}

bool IsPlausibleFunctionCode(uint8_t functionCode) {
    const uint8_t code = functionCode & 0x7F;
    return HasLengthRule(code) || code == 8 || code == 43;
}

FrameLength RequestLength(const uint8_t* bytes, size_t available) {
    switch (bytes[1]) {
        case 1: case 2: case 3: case 4: case 5: case 6: return Fixed(8);
        case 7: case 11: case 12: case 17: return Fixed(4);
        case 15: case 16: return Counted(bytes, available, 6, 9);
        case 20: case 21: return Counted(bytes, available, 2, 5);
        case 22: return Fixed(10);
        case 23: return Counted(bytes, available, 10, 13);
        case 24: return Fixed(6);
        default: return {LengthKind::NoRule, 0};
    }
}

FrameLength ResponseLength(const uint8_t* bytes, size_t available) {
    if (bytes[1] & 0x80) return Fixed(5);
    switch (bytes[1]) {
        case 1: case 2: case 3: case 4: case 12: case 17: case 20: case 21: case 23:
            return Counted(bytes, available, 2, 5);
        case 5: case 6: case 15: case 16: case 11: return Fixed(8);
        case 7: return Fixed(5);
        case 22: return Fixed(10);
        case 24:
            // Byte count (two bytes) of FIFO count and values, then the CRC.
            if (available < 4) return {LengthKind::NeedMore, 0};
            return Fixed(6 + ((bytes[2] << 8) | bytes[3]));
        default: return {LengthKind::NoRule, 0};
    }
}

FrameFields DescribeRequest(const std::vector<uint8_t>& frame) {
    FrameFields f;
    const auto length = RequestLength(frame.data(), frame.size());
    if (length.kind != LengthKind::Known || length.length != frame.size()) return f;
    switch (frame[1]) {
        case 1: case 2: case 3: case 4:
            SetAddressAndCount(frame, f);
            break;
        case 5: case 6:
            SetSingleWrite(frame, f);
            break;
        case 15:
            SetAddressAndCount(frame, f);
            AddBits(frame, 7, f.count, f);
            break;
        case 16:
            SetAddressAndCount(frame, f);
            AddWords(frame, 7, f.count, f);
            break;
        case 23:
            // The read part gives address and count; the values are those written.
            SetAddressAndCount(frame, f);
            AddWords(frame, 11, Word(frame, 8), f);
            break;
        case 24:
            f.hasAddress = true;
            f.address = Word(frame, 2);
            break;
        default:
            break;
    }
    return f;
}

FrameFields DescribeResponse(const std::vector<uint8_t>& frame, uint16_t requestCount) {
    FrameFields f;
    if (frame.size() < 5 || (frame[1] & 0x80)) return f;
    const auto length = ResponseLength(frame.data(), frame.size());
    if (length.kind != LengthKind::Known || length.length != frame.size()) return f;
    switch (frame[1]) {
        case 1: case 2: {
            const size_t bits = frame[2] * 8u;
            AddBits(frame, 3, requestCount != 0 && requestCount < bits ? requestCount : bits, f);
            f.hasCount = true;
            f.count = static_cast<uint32_t>(f.values.size());
            break;
        }
        case 3: case 4: case 23:
            AddWords(frame, 3, frame[2] / 2u, f);
            f.hasCount = true;
            f.count = static_cast<uint32_t>(f.values.size());
            break;
        case 5: case 6:
            SetSingleWrite(frame, f);
            break;
        case 15: case 16:
            SetAddressAndCount(frame, f);
            break;
        case 7:
            f.values.push_back(frame[2]);
            break;
        case 11:
            f.values.push_back(Word(frame, 2));
            f.values.push_back(Word(frame, 4));
            break;
        case 24:
            f.hasCount = true;
            f.count = Word(frame, 4);
            AddWords(frame, 6, f.count, f);
            break;
        default:
            break;
    }
    return f;
}

}  // namespace Modbus
