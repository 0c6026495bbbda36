// The register-map import applies the detail dialog's rules from the core (src/maps/detail_rules);
// the dialog keeps its own table. Both must offer the same codes with the same bit-access marks.
// (Named so that it runs with the StructuresPage group.)
#include <gtest/gtest.h>

#include "maps/detail_rules.h"
#include "ui/detail_dialog.h"

namespace {

TEST(StructuresPageDetailRules, TheImportOffersTheDialogsFunctionCodes) {
    size_t count = 0;
    const ui::FunctionCodeChoice* table = ui::FunctionCodeTable(count);
    std::vector<uint8_t> codes;
    for (size_t i = 0; i < count; ++i) {
        codes.push_back(static_cast<uint8_t>(table[i].code));
        EXPECT_EQ(table[i].bitAccess, maps::IsBitAccessCode(static_cast<uint8_t>(table[i].code))) << table[i].code;
    }
    EXPECT_EQ(codes, maps::DialogFunctionCodes());
}

}  // namespace
