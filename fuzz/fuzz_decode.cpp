// Value decoding and the display text: every data type, byte order and array size (values inside
// and outside the tables), any register contents, any scale, offset and unit.
//
// Input: [data type][byte order][array size hi lo][scale: 8 bytes][offset: 8 bytes][unit length]
// [unit] then the registers, two bytes each (high byte first).
// Checked: no crash, out-of-bounds access or undefined behaviour (float-to-integer overflow
// included); the decoded alternative is the one the data type calls for; the register count and
// the ordered byte image agree with the registers.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <variant>
#include <vector>

#include "model/structure.h"
#include "model/value_decoding.h"
#include "model/value_display.h"
#include "polling/recording_buffer.h"

namespace {

[[noreturn]] void Fail(const char* what) {
    std::fprintf(stderr, "invariant broken: %s\n", what);
    std::abort();
}

double TakeDouble(const uint8_t* p) {
    double v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// The alternative each data type decodes to (int64 for a type outside the table).
size_t ExpectedAlternative(Modbus::DataType type) {
    switch (type) {
        case Modbus::DataType::Boolean: return 0;
        case Modbus::DataType::Float32:
        case Modbus::DataType::Float64: return 2;
        case Modbus::DataType::String: return 3;
        case Modbus::DataType::Raw: return 4;
        default: return 1;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 21) return 0;
    Modbus::ModbusDetail detail;
    // Signed bytes, so that negative and out-of-table values come up as often as valid ones.
    detail.dataType = static_cast<Modbus::DataType>(static_cast<int8_t>(data[0]));
    detail.byteOrder = static_cast<Modbus::ByteOrder>(static_cast<int8_t>(data[1]));
    detail.arraySize = static_cast<int16_t>(data[2] << 8 | data[3]);
    detail.scale = TakeDouble(data + 4);
    detail.offset = TakeDouble(data + 12);
    size_t at = 20;
    const size_t unitLength = std::min<size_t>(data[at], size - at - 1);
    ++at;
    detail.unit.assign(reinterpret_cast<const char*>(data + at), unitLength);
    at += unitLength;
    std::vector<uint16_t> registers;
    for (; at + 1 < size; at += 2) registers.push_back(static_cast<uint16_t>(data[at] << 8 | data[at + 1]));

    (void)Modbus::RegisterCountFor(detail);
    (void)Modbus::DataTypeName(detail.dataType);
    (void)Modbus::ByteOrderName(detail.byteOrder);
    if (Modbus::ParseDataType(Modbus::DataTypeName(detail.dataType)) != detail.dataType &&
        static_cast<int32_t>(detail.dataType) >= 0 && static_cast<int32_t>(detail.dataType) < Modbus::kDataTypeCount) {
        Fail("a data type name does not read back");
    }

    const DecodedValue value = DecodeValue(registers, detail);
    if (registers.empty()) {
        if (value.index() != 1 || std::get<int64_t>(value) != 0) Fail("an empty read is not int64 0");
    } else if (value.index() != ExpectedAlternative(detail.dataType)) {
        Fail("the decoded alternative does not fit the data type");
    }
    if (OrderedByteImage(registers, detail.byteOrder).size() != registers.size() * 2) {
        Fail("the ordered byte image has another size");
    }
    const std::string text = FormatDisplayText(detail, value);
    (void)NumericValue(value);
    (void)RawValueText(value);
    if (value.index() == 4 && !registers.empty() && text.size() != registers.size() * 5 - 1) {
        Fail("a register array does not show 4 digits per register");
    }
    return 0;
}
