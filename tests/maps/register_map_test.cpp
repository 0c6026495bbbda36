// Register maps in the core: a 180-row table as a vendor writes it, every kind of bad row with its
// message, and the round trip over every data type, byte order and function code.
#include <gtest/gtest.h>

#include <cstdio>

#include "common/localizer.h"
#include "maps/detail_rules.h"
#include "maps/register_map.h"

using namespace maps;
using Modbus::ByteOrder;
using Modbus::DataType;
using Modbus::ModbusDetail;

namespace {

class RegisterMapTest : public ::testing::Test {
protected:
    void SetUp() override { Localizer::SetAllLanguages(1); }
};

void ExpectSameDetail(const ModbusDetail& a, const ModbusDetail& b, const std::string& where) {
    EXPECT_EQ(a.name, b.name) << where;
    EXPECT_EQ(a.unit, b.unit) << where;
    EXPECT_EQ(a.dataType, b.dataType) << where;
    EXPECT_EQ(a.arraySize, b.arraySize) << where;
    EXPECT_EQ(a.registerAddress, b.registerAddress) << where;
    EXPECT_EQ(a.functionCode, b.functionCode) << where;
    EXPECT_EQ(a.byteOrder, b.byteOrder) << where;
    EXPECT_EQ(a.scale, b.scale) << where;
    EXPECT_EQ(a.offset, b.offset) << where;
    EXPECT_EQ(a.warnLow, b.warnLow) << where;
    EXPECT_EQ(a.warnHigh, b.warnHigh) << where;
    EXPECT_EQ(a.alarmLow, b.alarmLow) << where;
    EXPECT_EQ(a.alarmHigh, b.alarmHigh) << where;
    EXPECT_EQ(a.alarmOnChange, b.alarmOnChange) << where;
    EXPECT_EQ(a.widgetType, b.widgetType) << where;
    EXPECT_EQ(a.id, b.id) << where;
}

std::string Format(const char* format, int value) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

// One vendor row and the detail it must give. The columns stand in a vendor's own order.
struct VendorRow {
    std::string line;
    ModbusDetail expected;
};

const char* const kTypeForms[] = {"BOOLEAN", "byte",   "Int16",   "UINT16",  "int32",  "UInt32",
                                  "INT64",   "uint64", "Float32", "FLOAT64", "string", "RAW"};
const char* const kOrderForms[] = {"BIG_ENDIAN", "Little Endian", "big endian swap", "LITTLE_ENDIAN_SWAP"};
const char* const kCodeForms[] = {"%d", "%02d", "0x%02X", "FC%02d"};
const char* const kFlagForms[][2] = {{"no", "yes"}, {"0", "1"}, {"FALSE", "True"}, {"", "yes"}};

VendorRow MakeVendorRow(int i) {
    VendorRow row;
    ModbusDetail& d = row.expected;
    const auto type = static_cast<DataType>(i % 12);
    d.dataType = type;
    // Names with the separator, quotes and a leading space inside quotes.
    std::string nameField;
    if (i % 7 == 0) {
        d.name = "Valve \"V" + std::to_string(i) + "\"; open";
        nameField = "\"Valve \"\"V" + std::to_string(i) + "\"\"; open\"";
    } else if (i % 13 == 0) {
        d.name = " Spare " + std::to_string(i);
        nameField = "\" Spare " + std::to_string(i) + "\"";
    } else {
        d.name = "Point " + std::to_string(i);
        nameField = "Point " + std::to_string(i);
    }
    d.registerAddress = static_cast<uint16_t>(1000 + 4 * i);
    const std::string addressField =
        i % 3 == 0 ? Format("0x%04X", d.registerAddress) : std::to_string(d.registerAddress);
    // Function codes: every code the type is offered, in every written form; some left to the default.
    const std::vector<uint8_t> offered = CodesOfferedFor(type);
    std::string codeField;
    if (i % 11 == 5) {
        d.functionCode = DefaultCodeFor(type);
    } else {
        d.functionCode = offered[static_cast<size_t>(i / 12) % offered.size()];
        codeField = Format(kCodeForms[i % 4], d.functionCode);
        if (i % 4 == 3) codeField = "FC" + Format("%02d", d.functionCode);  // FC15, FC16 are decimal
    }
    std::string orderField;
    if (i % 5 != 4) {
        d.byteOrder = static_cast<ByteOrder>((i / 3) % 4);
        orderField = kOrderForms[(i / 3) % 4];
    }
    std::string sizeField;
    if (type == DataType::String) {
        d.arraySize = 8;
        sizeField = "8";
    } else if (i % 6 == 1) {
        sizeField = "3";
        d.arraySize = type == DataType::Boolean ? 1 : 3;  // a BOOLEAN always has one element
    } else if (i % 6 == 2) {
        sizeField = "0";  // corrected to 1
    }
    std::string scaleField;
    switch (i % 4) {
        case 0:
            d.scale = 0.1;
            scaleField = "0,1";
            break;
        case 1:
            d.scale = 1.0;
            scaleField = "0";
            break;  // a scale of 0 becomes 1
        case 2:
            d.scale = 0.001;
            scaleField = "0.001";
            break;
        default: break;
    }
    std::string offsetField;
    if (i % 3 == 1) {
        d.offset = -50;
        offsetField = "-50";
    } else if (i % 3 == 2) {
        d.offset = 12.5;
        offsetField = "12,5";
    }
    const char* const units[] = {
        "\xC2\xB0"
        "C",
        "m\xC2\xB3/h", "", "A"};
    d.unit = units[i % 4];
    std::string limitFields = ";;;";
    if (i % 2 == 0) {
        d.warnLow = 5.5;
        d.warnHigh = 80;
        d.alarmLow = 0.25;
        d.alarmHigh = 95;
        limitFields = "5,5;80;0,25;95";
    }
    d.alarmOnChange = i % 2 == 1;
    const std::string flagField = kFlagForms[(i / 2) % 4][i % 2];
    // Vendor order: Address;Name;Type;FC;Order;Size;Scale;Offset;Unit;limits;flag
    row.line = addressField + ";" + nameField + ";" + kTypeForms[i % 12] + ";" + codeField + ";" + orderField + ";" +
               sizeField + ";" + scaleField + ";" + offsetField + ";" + d.unit + ";" + limitFields + ";" + flagField;
    return row;
}

TEST_F(RegisterMapTest, AVendorTableOf180RowsIsImportedExactly) {
    std::string text =
        "\xEF\xBB\xBF"
        "Address;NAME;Data_Type;Function_Code;Byte_Order;Array_Size;Scale;Offset;Unit;"
        "Warn_Low;Warn_High;Alarm_Low;Alarm_High;Alarm_On_Change\r\n";
    std::vector<ModbusDetail> expected;
    for (int i = 0; i < 180; ++i) {
        const VendorRow row = MakeVendorRow(i);
        text += row.line + "\r\n";
        if (i == 90) text += "\r\n;;;;;;;;;;;;;\r\n";  // a blank line and an empty spreadsheet row
        expected.push_back(row.expected);
    }
    std::vector<ModbusDetail> details;
    std::string error;
    ASSERT_TRUE(ImportRegisterMap(text, "vendor.csv", details, error)) << error;
    ASSERT_EQ(details.size(), 180u);
    for (size_t i = 0; i < details.size(); ++i) ExpectSameDetail(details[i], expected[i], "row " + std::to_string(i));
    // Both blank lines are counted: a bad row after them is named by its line in the file.
    text += "1;late;FLOAT32;FC01;;;;;;;;;;\r\n";
    EXPECT_FALSE(ImportRegisterMap(text, "vendor.csv", details, error));
    EXPECT_EQ(error,
              "vendor.csv: line 184, column \"Function_Code\": expected a function code that fits the data "
              "type FLOAT32 (3, 4, 6, 16), not \"FC01\"");
    EXPECT_TRUE(details.empty());
}

TEST_F(RegisterMapTest, OnlyTheRequiredColumnsGiveTheDialogsDefaults) {
    std::vector<ModbusDetail> details;
    std::string error;
    ASSERT_TRUE(
        ImportRegisterMap("data_type,address,name\nBOOLEAN,5,Door\nFLOAT32,0x10,Level\n", "m.csv", details, error))
        << error;
    ASSERT_EQ(details.size(), 2u);
    ModbusDetail door;
    door.name = "Door";
    door.dataType = DataType::Boolean;
    door.registerAddress = 5;
    door.functionCode = 1;
    ExpectSameDetail(details[0], door, "door");
    ModbusDetail level;
    level.name = "Level";
    level.dataType = DataType::Float32;
    level.registerAddress = 16;
    ExpectSameDetail(details[1], level, "level");
}

TEST_F(RegisterMapTest, EveryKindOfBadRowNamesFileLineColumnAndExpectation) {
    const std::string header =
        "name;function_code;address;data_type;byte_order;array_size;scale;offset;unit;warn_low;warn_high;alarm_low;"
        "alarm_high;alarm_on_change\r\nGood;3;1;UINT16;;;;;;;;;;\r\n\r\n";
    const std::string at = "m.csv: line 4, column ";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {";3;1;UINT16;;;;;;;;;;", at + "\"name\": expected a name (it must not be empty), not \"\""},
        {"x;3;1;FLOAT;;;;;;;;;;", at + "\"data_type\": expected a data type (BOOLEAN, BYTE, INT16, UINT16, INT32, "
                                       "UINT32, INT64, UINT64, FLOAT32, FLOAT64, STRING, RAW), not \"FLOAT\""},
        {"x;3;1;;;;;;;;;;;", at + "\"data_type\": expected a data type (BOOLEAN, BYTE, INT16, UINT16, INT32, UINT32, "
                                  "INT64, UINT64, FLOAT32, FLOAT64, STRING, RAW), not \"\""},
        {"x;3;65536;UINT16;;;;;;;;;;",
         at + "\"address\": expected an address 0..65535 (decimal or 0x hexadecimal), not \"65536\""},
        {"x;3;-1;UINT16;;;;;;;;;;",
         at + "\"address\": expected an address 0..65535 (decimal or 0x hexadecimal), not \"-1\""},
        {"x;3;0x1FFFF;UINT16;;;;;;;;;;",
         at + "\"address\": expected an address 0..65535 (decimal or 0x hexadecimal), not \"0x1FFFF\""},
        {"x;3;40001a;UINT16;;;;;;;;;;",
         at + "\"address\": expected an address 0..65535 (decimal or 0x hexadecimal), not \"40001a\""},
        {"x;3;;UINT16;;;;;;;;;;",
         at + "\"address\": expected an address 0..65535 (decimal or 0x hexadecimal), not \"\""},
        {"x;7;1;UINT16;;;;;;;;;;",
         at + "\"function_code\": expected a function code 1, 2, 3, 4, 5, 6, 15 or 16 (as 3, 03, "
              "0x03 or FC03), not \"7\""},
        {"x;0x0F0;1;BOOLEAN;;;;;;;;;;",
         at + "\"function_code\": expected a function code 1, 2, 3, 4, 5, 6, 15 or 16 (as 3, "
              "03, 0x03 or FC03), not \"0x0F0\""},
        {"x;FC0F;1;BOOLEAN;;;;;;;;;;",
         at + "\"function_code\": expected a function code 1, 2, 3, 4, 5, 6, 15 or 16 (as 3, "
              "03, 0x03 or FC03), not \"FC0F\""},
        {"x;FC15;1;INT32;;;;;;;;;;",
         at + "\"function_code\": expected a function code that fits the data type INT32 (3, 4, "
              "6, 16), not \"FC15\""},
        {"x;2;1;STRING;;;;;;;;;;",
         at + "\"function_code\": expected a function code that fits the data type STRING (3, 4, "
              "6, 16), not \"2\""},
        {"x;3;1;UINT16;MIDDLE;;;;;;;;;", at + "\"byte_order\": expected a byte order (BIG_ENDIAN, LITTLE_ENDIAN, "
                                              "BIG_ENDIAN_SWAP, LITTLE_ENDIAN_SWAP or Big Endian, Little Endian, Big "
                                              "Endian Swap, Little Endian Swap), not \"MIDDLE\""},
        {"x;3;1;UINT16;;2,5;;;;;;;;", at + "\"array_size\": expected a whole number of elements, not \"2,5\""},
        {"x;3;1;UINT16;;;1.2.3;;;;;;;", at + "\"scale\": expected a number (such as 12.5 or 12,5), not \"1.2.3\""},
        {"x;3;1;UINT16;;;1.234,5;;;;;;;", at + "\"scale\": expected a number (such as 12.5 or 12,5), not \"1.234,5\""},
        {"x;3;1;UINT16;;;;ten;;;;;;", at + "\"offset\": expected a number (such as 12.5 or 12,5), not \"ten\""},
        {"x;3;1;UINT16;;;;;;nan;;;;", at + "\"warn_low\": expected a number (such as 12.5 or 12,5), not \"nan\""},
        {"x;3;1;UINT16;;;;;;;1e999;;;", at + "\"warn_high\": expected a number (such as 12.5 or 12,5), not \"1e999\""},
        {"x;3;1;UINT16;;;;;;;;--1;;", at + "\"alarm_low\": expected a number (such as 12.5 or 12,5), not \"--1\""},
        {"x;3;1;UINT16;;;;;;;;;5 V;", at + "\"alarm_high\": expected a number (such as 12.5 or 12,5), not \"5 V\""},
        {"x;3;1;UINT16;;;;;;;;;;maybe", at + "\"alarm_on_change\": expected true/false, 1/0 or yes/no, not \"maybe\""},
        {"x;3;1;UINT16;;;;;;;;;;;extra", "m.csv: line 4: 15 fields, but the header names 14 columns"},
        {"\"x;3;1;UINT16", "m.csv: line 4: a quoted field is not closed"},
    };
    for (const auto& [row, message] : cases) {
        std::vector<ModbusDetail> details;
        std::string error;
        EXPECT_FALSE(ImportRegisterMap(header + row + "\r\n", "m.csv", details, error)) << row;
        EXPECT_EQ(error, message) << row;
        EXPECT_TRUE(details.empty());
    }
}

TEST_F(RegisterMapTest, BadHeadersAndEmptyTables) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", "m.csv: no header row naming the columns"},
        {"\r\n\r\n", "m.csv: no header row naming the columns"},
        {"name,address,data_type\n", "m.csv: no rows after the header"},
        {"name,address\nx,1\n", "m.csv: line 1: the required column \"data_type\" is missing"},
        {"\nname,addr,data_type\nx,1,UINT16\n",
         "m.csv: line 2, column \"addr\": unknown column; the columns are name, function_code, address, data_type, "
         "byte_order, array_size, scale, offset, unit, warn_low, warn_high, alarm_low, alarm_high, alarm_on_change"},
        {"name,address,data_type,Name\nx,1,UINT16,y\n", "m.csv: line 1, column \"Name\": the column is named twice"},
        // A decimal comma only where ';' separates the fields.
        {"name,address,data_type,scale\nx,1,UINT16,\"0,5\"\n",
         "m.csv: line 2, column \"scale\": expected a number (such as 12.5), not \"0,5\""},
    };
    for (const auto& [text, message] : cases) {
        std::vector<ModbusDetail> details;
        std::string error;
        EXPECT_FALSE(ImportRegisterMap(text, "m.csv", details, error)) << text;
        EXPECT_EQ(error, message) << text;
    }
}

TEST_F(RegisterMapTest, GermanMessages) {
    Localizer::SetAllLanguages(0);
    std::vector<ModbusDetail> details;
    std::string error;
    EXPECT_FALSE(ImportRegisterMap("name;address;data_type\nx;70000;UINT16\n", "m.csv", details, error));
    EXPECT_EQ(error,
              "m.csv: Zeile 2, Spalte \"address\": erwartet: eine Adresse 0..65535 (dezimal oder 0x "
              "hexadezimal), nicht \"70000\"");
    EXPECT_FALSE(ImportRegisterMap("name;address\n", "m.csv", details, error));
    EXPECT_EQ(error, "m.csv: Zeile 1: die Pflichtspalte \"data_type\" fehlt");
    Localizer::SetAllLanguages(1);
}

TEST_F(RegisterMapTest, RoundTripOverEveryTypeOrderAndCode) {
    std::vector<ModbusDetail> details;
    int n = 0;
    for (int32_t t = 0; t < Modbus::kDataTypeCount; ++t) {
        const auto type = static_cast<DataType>(t);
        for (int32_t o = 0; o < Modbus::kByteOrderCount; ++o) {
            for (uint8_t code : CodesOfferedFor(type)) {
                ModbusDetail d;
                d.name = "P";
                d.name += std::to_string(n);
                if (n % 3 == 0) d.name += ", \"quoted\"";
                d.unit = n % 2 == 0 ? "m\xC2\xB3/h" : "";
                d.dataType = type;
                d.arraySize = type == DataType::Boolean ? 1 : 1 + n % 5;
                d.registerAddress = static_cast<uint16_t>(n * 977 % 65536);
                d.functionCode = code;
                d.byteOrder = static_cast<ByteOrder>(o);
                d.scale = n % 4 == 0 ? 0.1 : 1.0 / 3.0;
                d.offset = -3.25 * n;
                d.warnLow = n % 2 ? 0.0 : 1e-05;
                d.warnHigh = 1e+06;
                d.alarmLow = -0.5;
                d.alarmHigh = 123456.789;
                d.alarmOnChange = n % 2 == 1;
                details.push_back(d);
                ++n;
            }
        }
    }
    ASSERT_EQ(details.size(), 4u * (8 + 11 * 4));
    const std::string exported = ExportRegisterMap(details);
    std::vector<ModbusDetail> imported;
    std::string error;
    ASSERT_TRUE(ImportRegisterMap(exported, "out.csv", imported, error)) << error;
    ASSERT_EQ(imported.size(), details.size());
    for (size_t i = 0; i < details.size(); ++i) ExpectSameDetail(imported[i], details[i], std::to_string(i));
    EXPECT_EQ(ExportRegisterMap(imported), exported);
}

TEST_F(RegisterMapTest, ExportFormat) {
    ModbusDetail d;
    d.name = "Temp, \"inner\"";
    d.unit =
        "\xC2\xB0"
        "C";
    d.dataType = DataType::Float32;
    d.registerAddress = 100;
    d.byteOrder = ByteOrder::LittleEndianSwap;
    d.scale = 0.1;
    d.offset = -50;
    d.alarmHigh = 95;
    d.alarmOnChange = true;
    EXPECT_EQ(ExportRegisterMap({d}),
              "name,function_code,address,data_type,byte_order,array_size,scale,offset,unit,warn_low,warn_high,"
              "alarm_low,alarm_high,alarm_on_change\n"
              "\"Temp, \"\"inner\"\"\",3,100,FLOAT32,LITTLE_ENDIAN_SWAP,1,0.1,-50,\xC2\xB0"
              "C,0,0,0,95,true\n");
}

}  // namespace
