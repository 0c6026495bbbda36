#pragma once
// What a Modbus RTU frame must look like, function code by function code: the length of a request
// and of a response (fixed, or read from a byte count near the start), and the fields a frame
// carries (address, count, values). The bus monitor splits a byte stream with the lengths and
// describes each frame with the fields.
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Modbus {

// A frame length rule applied to the first bytes of a candidate frame.
enum class LengthKind {
    Known,     // `length` holds the whole frame length, CRC included
    NeedMore,  // the byte count that decides the length has not arrived yet
    NoRule,    // the function code has no length rule (08, 2B and codes we do not know)
};

struct FrameLength {
    LengthKind kind;
    size_t length;
};

// Lengths of a request and of a (non-exception) response whose unit id and function code start
// `bytes`; `available` bytes are there (at least 2). An exception response (function code with
// the high bit set) is 5 bytes: ResponseLength gives that for any code.
FrameLength RequestLength(const uint8_t* bytes, size_t available);
FrameLength ResponseLength(const uint8_t* bytes, size_t available);

// Function codes whose request and response lengths we know.
bool HasLengthRule(uint8_t functionCode);
// A function code a device on the bus may plausibly use: those with a length rule, 08 and 2B, and
// their exception codes.
bool IsPlausibleFunctionCode(uint8_t functionCode);
// Unit ids 0 (broadcast) to 247; 248 to 255 are reserved.
inline bool IsPlausibleUnitId(uint8_t unitId) { return unitId <= 247; }

inline constexpr size_t kMinimumRtuFrame = 4;   // unit, function code, CRC
inline constexpr size_t kMaximumRtuFrame = 256;

// The fields of a frame for the monitor's lines and CSV rows; empty where the frame does not carry
// them. `requestCount` is the bit count of the paired request (FC01/FC02 responses say only how
// many bytes their bits fill); 0 when there is none.
struct FrameFields {
    bool hasAddress = false;
    uint16_t address = 0;
    bool hasCount = false;
    uint32_t count = 0;
    std::vector<uint32_t> values;
};

FrameFields DescribeRequest(const std::vector<uint8_t>& frame);
FrameFields DescribeResponse(const std::vector<uint8_t>& frame, uint16_t requestCount);

}  // namespace Modbus
