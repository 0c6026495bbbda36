// The image file of the simulator: reading every form a line may take, the line a bad one is
// reported at, and writing the non-zero values of the four tables back.
#include <gtest/gtest.h>

#include "sim/image_file.h"

using namespace sim;

namespace {

TEST(ImageFileTest, ReadsAndSeedsAllFourTables) {
    const std::string text =
        "# a pump, as found on site\r\n"
        "\r\n"
        "coil;0;1\n"
        "discrete;0x10;1\n"
        "  input ; 118 ; 0x4366 \n"
        "holding;65535;65535\n"
        "holding;7;0\n";
    std::vector<ImageValue> values;
    std::string error;
    ASSERT_TRUE(ParseImageText(text, values, error)) << error;
    ASSERT_EQ(values.size(), 5u);
    EXPECT_EQ(values[2].table, ImageTable::Input);
    EXPECT_EQ(values[2].address, 118);
    EXPECT_EQ(values[2].value, 0x4366);
    SlaveRegisterImage image;
    image.SetHoldingRegisters(7, {99});
    SeedImage(image, values);
    EXPECT_EQ(image.GetCoils(0, 2), (std::vector<bool>{true, false}));
    EXPECT_EQ(image.GetDiscreteInputs(16, 1), (std::vector<bool>{true}));
    EXPECT_EQ(image.GetInputRegisters(118, 1), (std::vector<uint16_t>{0x4366}));
    EXPECT_EQ(image.GetHoldingRegisters(65535, 1), (std::vector<uint16_t>{65535}));
    EXPECT_EQ(image.GetHoldingRegisters(7, 1), (std::vector<uint16_t>{0}));
}

TEST(ImageFileTest, ABadLineIsNamedWithWhatWasExpected) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"coil;0;1\nholding;1\n", "line 2: expected table;address;value, not 'holding;1'"},
        {"coil;0;1\n# x\nregister;1;2\n",
         "line 3: expected the table coil, discrete, input or holding, not 'register'"},
        {"Holding;1;2\n", "line 1: expected the table coil, discrete, input or holding, not 'Holding'"},
        {"holding;65536;2\n", "line 1: expected an address 0..65535 (decimal or 0x hexadecimal), not '65536'"},
        {"holding;-1;2\n", "line 1: expected an address 0..65535 (decimal or 0x hexadecimal), not '-1'"},
        {"holding;0x;2\n", "line 1: expected an address 0..65535 (decimal or 0x hexadecimal), not '0x'"},
        {"holding;1;70000\n", "line 1: expected a register value 0..65535 (decimal or 0x hexadecimal), not '70000'"},
        {"input;1;1.5\n", "line 1: expected a register value 0..65535 (decimal or 0x hexadecimal), not '1.5'"},
        {"coil;1;2\n", "line 1: expected a bit 0 or 1, not '2'"},
        {"discrete;1;\n", "line 1: expected a bit 0 or 1, not ''"},
        {"\n\ncoil;1;1;1\n", "line 3: expected table;address;value, not 'coil;1;1;1'"},
    };
    for (const auto& [text, expected] : cases) {
        std::vector<ImageValue> values;
        std::string error;
        EXPECT_FALSE(ParseImageText(text, values, error)) << text;
        EXPECT_EQ(error, expected) << text;
    }
}

TEST(ImageFileTest, WritesEveryNonZeroValueInTableAndAddressOrder) {
    SlaveRegisterImage image;
    image.SetHoldingRegisters(65535, {2});
    image.SetHoldingRegisters(3, {0, 1});
    image.SetInputRegisters(0, {0x1234});
    image.SetDiscreteInputs(9, {true});
    image.SetCoils(65534, {true, false});
    image.SetCoils(1, {true});
    const std::string text = ImageText(image);
    EXPECT_EQ(text, "coil;1;1\ncoil;65534;1\ndiscrete;9;1\ninput;0;4660\nholding;4;1\nholding;65535;2\n");
    // Read back, it gives the same image.
    std::vector<ImageValue> values;
    std::string error;
    ASSERT_TRUE(ParseImageText(text, values, error));
    SlaveRegisterImage copy;
    SeedImage(copy, values);
    EXPECT_EQ(ImageText(copy), text);
    EXPECT_EQ(ImageText(SlaveRegisterImage()), "");
}

}  // namespace
