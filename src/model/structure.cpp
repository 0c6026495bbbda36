#include "model/structure.h"

namespace Modbus {
namespace {

constexpr const char* kDataTypeNames[kDataTypeCount] = {
    "BOOLEAN", "BYTE", "INT16", "UINT16", "INT32", "UINT32", "INT64", "UINT64", "FLOAT32", "FLOAT64", "STRING", "RAW",
};
constexpr const char* kByteOrderNames[kByteOrderCount] = {
    "BIG_ENDIAN", "LITTLE_ENDIAN", "BIG_ENDIAN_SWAP", "LITTLE_ENDIAN_SWAP",
};
constexpr const char* kWidgetTypeNames[kWidgetTypeCount] = {"AUTO", "VALUE", "LED", "GAUGE", "CHART"};

template <int32_t N>
const char* NameOf(const char* const (&names)[N], int32_t value, int32_t fallback) {
    return names[value >= 0 && value < N ? value : fallback];
}

// Index of `name` in the table, or -1.
template <int32_t N>
int32_t IndexOf(const char* const (&names)[N], const std::string& name) {
    for (int32_t i = 0; i < N; ++i) {
        if (name == names[i]) return i;
    }
    return -1;
}

}  // namespace

const char* DataTypeName(DataType type) {
    return NameOf(kDataTypeNames, static_cast<int32_t>(type), static_cast<int32_t>(DataType::UInt16));
}

DataType ParseDataType(const std::string& name) {
    const int32_t index = IndexOf(kDataTypeNames, name);
    return index < 0 ? DataType::UInt16 : static_cast<DataType>(index);
}

const char* ByteOrderName(ByteOrder order) {
    return NameOf(kByteOrderNames, static_cast<int32_t>(order), static_cast<int32_t>(ByteOrder::BigEndian));
}

ByteOrder ParseByteOrder(const std::string& name) {
    const int32_t index = IndexOf(kByteOrderNames, name);
    return index < 0 ? ByteOrder::BigEndian : static_cast<ByteOrder>(index);
}

const char* WidgetTypeName(WidgetType widget) {
    return NameOf(kWidgetTypeNames, static_cast<int32_t>(widget), static_cast<int32_t>(WidgetType::Auto));
}

WidgetType ParseWidgetType(const std::string& name) {
    const int32_t index = IndexOf(kWidgetTypeNames, name);
    return index < 0 ? WidgetType::Auto : static_cast<WidgetType>(index);
}

bool IsDataTypeName(const std::string& name) { return IndexOf(kDataTypeNames, name) >= 0; }
bool IsByteOrderName(const std::string& name) { return IndexOf(kByteOrderNames, name) >= 0; }
bool IsWidgetTypeName(const std::string& name) { return IndexOf(kWidgetTypeNames, name) >= 0; }

uint16_t RegisterCountFor(const ModbusDetail& detail) {
    // Computed in 64 bits so that a huge arraySize wraps like the 16-bit request field, never
    // overflows.
    const int64_t size = detail.arraySize;
    int64_t count = 1;
    switch (detail.dataType) {
        case DataType::Boolean:
        case DataType::Byte:
        case DataType::Int16:
        case DataType::UInt16:
        case DataType::String:
        case DataType::Raw: count = size; break;
        case DataType::Int32:
        case DataType::UInt32:
        case DataType::Float32: count = size * 2; break;
        case DataType::Int64:
        case DataType::UInt64:
        case DataType::Float64: count = size * 4; break;
    }
    return static_cast<uint16_t>(static_cast<uint64_t>(count) & 0xFFFF);
}

}  // namespace Modbus
