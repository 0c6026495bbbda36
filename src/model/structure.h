#pragma once
// The device model: a structure is a named device endpoint holding a list of details, a detail is
// one data point (where it lives in the register space, how its bytes are ordered, its type, its
// scaling and its limits). Both are plain values, copied freely by the store, the polling engine
// and the dialogs.
#include <cstdint>
#include <string>
#include <vector>

namespace Modbus {

// The enumerations are stored and written as 32-bit numbers; a value outside a table is kept as
// it is and simply has no name of its own (it writes the default name). The enumerators are
// spelled in CamelCase because the platform headers define BIG_ENDIAN, LITTLE_ENDIAN, BOOLEAN and
// BYTE themselves; the text names ("BIG_ENDIAN", ...) are what the file and the lists show.
enum class DataType : int32_t {
    Boolean = 0,
    Byte = 1,
    Int16 = 2,
    UInt16 = 3,
    Int32 = 4,
    UInt32 = 5,
    Int64 = 6,
    UInt64 = 7,
    Float32 = 8,
    Float64 = 9,
    String = 10,
    Raw = 11,
};

enum class ByteOrder : int32_t {
    BigEndian = 0,         // as received
    LittleEndian = 1,      // the whole byte image reversed
    BigEndianSwap = 2,     // the two bytes of every register swapped, register order kept
    LittleEndianSwap = 3,  // register order reversed, bytes inside each register kept
};

enum class WidgetType : int32_t {
    Auto = 0,
    Value = 1,
    Led = 2,
    Gauge = 3,
    Chart = 4,
};

inline constexpr int32_t kDataTypeCount = 12;
inline constexpr int32_t kByteOrderCount = 4;
inline constexpr int32_t kWidgetTypeCount = 5;

struct ModbusDetail {
    int32_t id = 0;  // unique across all structures, handed out by the store
    std::string name;
    std::string unit;  // engineering unit shown after the value
    DataType dataType = DataType::UInt16;
    int32_t arraySize = 1;
    uint16_t registerAddress = 0;  // 0-based protocol address
    uint8_t functionCode = 3;      // 1, 2, 3 or 4 select the read; anything else reads holding registers
    ByteOrder byteOrder = ByteOrder::BigEndian;
    double scale = 1.0;   // engineering value = raw * scale + offset
    double offset = 0.0;
    double warnLow = 0.0;  // a limit of 0.0 is "not set"
    double warnHigh = 0.0;
    double alarmLow = 0.0;
    double alarmHigh = 0.0;
    bool alarmOnChange = false;
    WidgetType widgetType = WidgetType::Auto;
};

// Text names of the enumerations. A value outside a table writes the default name ("UINT16",
// "BIG_ENDIAN", "AUTO"); parsing compares exactly, case-sensitively, and an unknown or empty name
// gives the default, so a name is never an error.
const char* DataTypeName(DataType type);
DataType ParseDataType(const std::string& name);
const char* ByteOrderName(ByteOrder order);
ByteOrder ParseByteOrder(const std::string& name);
const char* WidgetTypeName(WidgetType widget);
WidgetType ParseWidgetType(const std::string& name);

// True when `name` is exactly one of the table's names (for callers that want to reject a typo).
bool IsDataTypeName(const std::string& name);
bool IsByteOrderName(const std::string& name);
bool IsWidgetTypeName(const std::string& name);

// The number of registers a detail occupies: arraySize for the one-register types, twice or four
// times that for the 32- and 64-bit types, 1 for a type value outside the table. The product is
// truncated to 16 bits, as it is when it goes into a read request.
uint16_t RegisterCountFor(const ModbusDetail& detail);

}  // namespace Modbus

struct ModbusStructure {
    int32_t id = 0;  // handed out by the store
    std::string name;
    std::string description;
    std::string ip = "192.168.1.1";
    uint16_t port = 502;
    uint8_t unitId = 1;       // used for every request of this structure
    bool rtuOverTcp = false;  // stored and edited; polling always frames Modbus TCP
    std::vector<Modbus::ModbusDetail> details;
};
