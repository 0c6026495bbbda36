// The limits of the structures file format that the structures fuzz target runs into, pinned down
// as the format defines them: the reader matches braces without regard to quotes, takes a quote
// after a backslash as escaped, and numbers are written with six significant digits.
#include <gtest/gtest.h>

#include <cfloat>
#include <stdexcept>

#include "model/structure_store.h"

namespace {

ModbusStructure OneStructure(const std::string& name, double scale = 1.0) {
    ModbusStructure s;
    s.name = name;
    s.ip = "127.0.0.1";
    Modbus::ModbusDetail d;
    d.name = "d";
    d.scale = scale;
    s.details.push_back(d);
    return s;
}

std::vector<ModbusStructure> SaveAndRead(const ModbusStructure& s) {
    StructureStore first("/nonexistent/limits.json");
    first.AddStructure(s);
    StructureStore second("/nonexistent/limits.json");
    second.ParseStructures(first.SerializeStructures());
    return second.Structures();
}

TEST(StoreFormatLimits, PlainTextRoundTrips) {
    const auto read = SaveAndRead(OneStructure("Pumpe \"1\" \\ A\nB\t[x]: y, z"));
    ASSERT_EQ(read.size(), 1u);
    EXPECT_EQ(read[0].name, "Pumpe \"1\" \\ A\nB\t[x]: y, z");
    EXPECT_EQ(read[0].details.size(), 1u);
}

TEST(StoreFormatLimits, ABraceInANameEndsTheObjectEarly) {
    // "}" closes the structure object inside the name; what is left of the object is read
    // without its details.
    const auto read = SaveAndRead(OneStructure("Tank }"));
    ASSERT_EQ(read.size(), 1u);
    EXPECT_TRUE(read[0].details.empty());
}

TEST(StoreFormatLimits, ANameEndingInABackslashSwallowsItsClosingQuote) {
    // Written as "Tank \\" the closing quote follows a backslash and is taken as escaped.
    const auto read = SaveAndRead(OneStructure("Tank \\"));
    ASSERT_EQ(read.size(), 1u);
    EXPECT_NE(read[0].name, "Tank \\");
}

TEST(StoreFormatLimits, SixDigitsAndTheSmallestNormalDouble) {
    // 0.123456789 is written as 0.123457 and reads back so.
    EXPECT_DOUBLE_EQ(SaveAndRead(OneStructure("S", 0.123456789))[0].details[0].scale, 0.123457);
    // The smallest normal double is written as 2.22507e-308, which lies below it: the reader's
    // conversion raises out_of_range, so a saved file holding it does not load again.
    StructureStore store("/nonexistent/limits.json");
    store.AddStructure(OneStructure("S", DBL_MIN));
    StructureStore reread("/nonexistent/limits.json");
    EXPECT_THROW(reread.ParseStructures(store.SerializeStructures()), std::out_of_range);
}

}  // namespace
