// The detail dialog's OK rules as the import applies them: the codes offered per data type, the
// code a new detail gets, the corrections.
#include <gtest/gtest.h>

#include "maps/detail_rules.h"

using namespace maps;
using Modbus::DataType;

namespace {

TEST(DetailRulesTest, CodesOfferedPerType) {
    EXPECT_EQ(DialogFunctionCodes(), (std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 15, 16}));
    EXPECT_EQ(CodesOfferedFor(DataType::Boolean), (std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 15, 16}));
    for (int32_t t = 1; t < Modbus::kDataTypeCount; ++t) {
        EXPECT_EQ(CodesOfferedFor(static_cast<DataType>(t)), (std::vector<uint8_t>{3, 4, 6, 16})) << t;
    }
    EXPECT_FALSE(IsCodeOfferedFor(DataType::Boolean, 23));
    EXPECT_FALSE(IsCodeOfferedFor(DataType::Boolean, 0));
    EXPECT_TRUE(IsBitAccessCode(15));
    EXPECT_FALSE(IsBitAccessCode(16));
}

TEST(DetailRulesTest, DefaultsAndCorrections) {
    EXPECT_EQ(DefaultCodeFor(DataType::Boolean), 1);
    EXPECT_EQ(DefaultCodeFor(DataType::Float32), 3);
    EXPECT_EQ(DefaultCodeFor(DataType::Raw), 3);
    Modbus::ModbusDetail d;
    d.arraySize = 0;
    d.scale = 0.0;
    ApplyDialogCorrections(d);
    EXPECT_EQ(d.arraySize, 1);
    EXPECT_EQ(d.scale, 1.0);
    d.arraySize = -7;
    d.scale = -0.5;
    ApplyDialogCorrections(d);
    EXPECT_EQ(d.arraySize, 1);
    EXPECT_EQ(d.scale, -0.5);
    d.dataType = DataType::Boolean;
    d.arraySize = 4;
    ApplyDialogCorrections(d);
    EXPECT_EQ(d.arraySize, 1);
    d.dataType = DataType::String;
    d.arraySize = 8;
    ApplyDialogCorrections(d);
    EXPECT_EQ(d.arraySize, 8);
}

}  // namespace
