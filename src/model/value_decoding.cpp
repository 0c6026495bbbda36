#include "model/value_decoding.h"

#include <algorithm>
#include <cstring>

#include "protocol/modbus_client.h"

using Modbus::ByteOrder;
using Modbus::DataType;

bool ReadDetailRegisters(ModbusClient& client, uint8_t unitId, const Modbus::ModbusDetail& detail,
                         std::vector<uint16_t>& registers) {
    const uint16_t count = Modbus::RegisterCountFor(detail);
    switch (detail.functionCode) {
        case 1:
        case 2: {
            std::vector<bool> bits;
            const bool ok = detail.functionCode == 1
                                ? client.ReadCoils(unitId, detail.registerAddress, count, bits)
                                : client.ReadDiscreteInputs(unitId, detail.registerAddress, count, bits);
            // A bit point is one value whatever its array size: the first bit, as 0 or 1.
            if (ok) registers.assign(1, !bits.empty() && bits.front() ? 1 : 0);
            return ok;
        }
        case 4: return client.ReadInputRegisters(unitId, detail.registerAddress, count, registers);
        default:
            // 3, and also the write codes (6, 16) that writable points carry, read holding registers.
            return client.ReadHoldingRegisters(unitId, detail.registerAddress, count, registers);
    }
}

std::vector<uint8_t> OrderedByteImage(const std::vector<uint16_t>& registers, ByteOrder order) {
    std::vector<uint8_t> bytes;
    bytes.reserve(registers.size() * 2);
    for (uint16_t r : registers) {
        bytes.push_back(static_cast<uint8_t>(r >> 8));
        bytes.push_back(static_cast<uint8_t>(r & 0xFF));
    }
    const auto swapPairs = [&bytes] {
        for (size_t i = 0; i + 1 < bytes.size(); i += 2) std::swap(bytes[i], bytes[i + 1]);
    };
    switch (order) {
        case ByteOrder::LittleEndian: std::reverse(bytes.begin(), bytes.end()); break;
        case ByteOrder::BigEndianSwap: swapPairs(); break;
        case ByteOrder::LittleEndianSwap:
            std::reverse(bytes.begin(), bytes.end());
            swapPairs();
            break;
        default: break;  // BIG_ENDIAN and any value outside the table: as received
    }
    return bytes;
}

namespace {

uint64_t BigEndianBits(const std::vector<uint8_t>& b, size_t count) {
    uint64_t value = 0;
    for (size_t i = 0; i < count; ++i) value = (value << 8) | b[i];
    return value;
}

// Every non-zero byte of the registers as received; a NUL is skipped, not a terminator.
std::string DecodeString(const std::vector<uint16_t>& registers) {
    std::string text;
    for (uint16_t r : registers) {
        const char high = static_cast<char>(r >> 8);
        const char low = static_cast<char>(r & 0xFF);
        if (high != '\0') text.push_back(high);
        if (low != '\0') text.push_back(low);
    }
    while (!text.empty() && text.back() == '\0') text.pop_back();
    return text;
}

}  // namespace

DecodedValue DecodeValue(const std::vector<uint16_t>& registers, const Modbus::ModbusDetail& detail) {
    if (registers.empty()) return DecodedValue{int64_t{0}};
    std::vector<uint8_t> b = OrderedByteImage(registers, detail.byteOrder);
    if (b.size() < 8) b.resize(8, 0);

    switch (detail.dataType) {
        case DataType::Boolean: return DecodedValue{(registers.front() & 1) != 0};
        case DataType::Byte: return DecodedValue{int64_t{b[1]}};
        case DataType::Int16: return DecodedValue{int64_t{static_cast<int16_t>(BigEndianBits(b, 2))}};
        case DataType::UInt16: return DecodedValue{static_cast<int64_t>(BigEndianBits(b, 2))};
        case DataType::Int32: return DecodedValue{int64_t{static_cast<int32_t>(BigEndianBits(b, 4))}};
        case DataType::UInt32: return DecodedValue{static_cast<int64_t>(BigEndianBits(b, 4))};
        case DataType::Int64:
        case DataType::UInt64:
            // Both are the 64 bits as they are; a UINT64 above the int64 range reads negative.
            return DecodedValue{static_cast<int64_t>(BigEndianBits(b, 8))};
        case DataType::Float32: {
            const uint32_t bits = static_cast<uint32_t>(BigEndianBits(b, 4));
            float value;
            std::memcpy(&value, &bits, sizeof value);
            return DecodedValue{static_cast<double>(value)};
        }
        case DataType::Float64: {
            const uint64_t bits = BigEndianBits(b, 8);
            double value;
            std::memcpy(&value, &bits, sizeof value);
            return DecodedValue{value};
        }
        case DataType::String: return DecodedValue{DecodeString(registers)};
        case DataType::Raw: return DecodedValue{registers};
    }
    return DecodedValue{int64_t{0}};
}
