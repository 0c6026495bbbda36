#pragma once
// Turning requests into wire bytes for the two framings (Modbus TCP with its MBAP header, Modbus
// RTU with its CRC-16), the fixed offsets at which responses are read, bit packing and hex dumps.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Modbus {

using Bytes = std::vector<uint8_t>;

// Where a response is read, counted from its first byte (for TCP the MBAP header stays in front).
struct ResponseLayout {
    size_t functionCode;   // function code byte
    size_t byteCount;      // exception code or byte count
    size_t firstData;      // first data byte
    size_t minimumLength;  // shortest response the read path accepts
};

inline constexpr ResponseLayout kRtuLayout{1, 2, 3, 3};
inline constexpr ResponseLayout kTcpLayout{7, 8, 9, 9};

inline constexpr const ResponseLayout& LayoutFor(bool isTcp) { return isTcp ? kTcpLayout : kRtuLayout; }

}  // namespace Modbus

// Unit id, function code, data, then the CRC-16 low byte first.
Modbus::Bytes BuildRtuRequest(uint8_t unitId, uint8_t functionCode, const Modbus::Bytes& data);

// The MBAP part of a TCP request: transaction id, protocol id 0, length = data size + 2, unit id,
// function code, data.
Modbus::Bytes BuildTcpFrame(uint16_t transactionId, uint8_t unitId, uint8_t functionCode, const Modbus::Bytes& data);

// Modbus CRC-16 (polynomial 0xA001 reflected, start 0xFFFF, no final XOR), bit by bit.
uint16_t Crc16(const uint8_t* bytes, size_t length);

// True when the last two bytes of an RTU frame are the CRC of the bytes before them.
bool HasValidCrc(const Modbus::Bytes& frame);

// Bits least significant first, ceil(n / 8) bytes.
Modbus::Bytes PackBits(const std::vector<bool>& bits);

// Reads the coil/discrete bits of an FC01/FC02 response; false when the response is shorter than
// its minimum length or than its byte count says.
bool UnpackBits(const Modbus::Bytes& response, bool isTcp, uint16_t count, std::vector<bool>& out);

// "01 03 00 00 00 0A": upper-case two-digit hex, single blanks between bytes.
std::string HexDump(const uint8_t* bytes, size_t length);
inline std::string HexDump(const Modbus::Bytes& bytes) { return HexDump(bytes.data(), bytes.size()); }
// The same text appended to `text` (a log line built in one piece).
void AppendHexDump(std::string& text, const uint8_t* bytes, size_t length);

// "FC03 Read Holding Registers" and so on; "Unknown FC" for codes without a name.
const char* FunctionCodeName(uint8_t fc);

// Exception test: the function-code byte has its high bit set. The caller checks the length first.
bool IsExceptionResponse(const Modbus::Bytes& response, bool isTcp);
// The exception code byte, or 0 when the response ends before it.
uint8_t ExceptionCode(const Modbus::Bytes& response, bool isTcp);
