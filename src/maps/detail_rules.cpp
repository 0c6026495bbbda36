#include "maps/detail_rules.h"

#include <algorithm>

namespace maps {

const std::vector<uint8_t>& DialogFunctionCodes() {
    static const std::vector<uint8_t> codes = {1, 2, 3, 4, 5, 6, 15, 16};
    return codes;
}

bool IsBitAccessCode(uint8_t code) { return code == 1 || code == 2 || code == 5 || code == 15; }

bool IsCodeOfferedFor(Modbus::DataType type, uint8_t code) {
    const auto& codes = DialogFunctionCodes();
    if (std::find(codes.begin(), codes.end(), code) == codes.end()) return false;
    return type == Modbus::DataType::Boolean || !IsBitAccessCode(code);
}

std::vector<uint8_t> CodesOfferedFor(Modbus::DataType type) {
    std::vector<uint8_t> offered;
    for (uint8_t code : DialogFunctionCodes()) {
        if (IsCodeOfferedFor(type, code)) offered.push_back(code);
    }
    return offered;
}

uint8_t DefaultCodeFor(Modbus::DataType type) { return type == Modbus::DataType::Boolean ? 1 : 3; }

void ApplyDialogCorrections(Modbus::ModbusDetail& detail) {
    // The dialog hides the array size of a BOOLEAN and sets its text to 1.
    if (detail.dataType == Modbus::DataType::Boolean || detail.arraySize < 1) detail.arraySize = 1;
    if (detail.scale == 0.0) detail.scale = 1.0;
}

}  // namespace maps
