#pragma once
// The rules the detail dialog applies when its OK is pressed, for code that makes details without
// the dialog (the register-map import): which function codes it offers for which data type, the
// code it selects when none is chosen, and the corrections it makes. The dialog keeps its own copy
// of the table; the tests hold both to the same answers.
#include <cstdint>
#include <vector>

#include "model/structure.h"

namespace maps {

// The dialog's eight function codes in its order: 1, 2, 3, 4, 5, 6, 15, 16.
const std::vector<uint8_t>& DialogFunctionCodes();
// FC01, FC02, FC05 and FC15 read or write bits.
bool IsBitAccessCode(uint8_t code);
// A BOOLEAN is offered every code; any other type only the register codes (3, 4, 6, 16).
bool IsCodeOfferedFor(Modbus::DataType type, uint8_t code);
// The codes offered for the type, in the dialog's order.
std::vector<uint8_t> CodesOfferedFor(Modbus::DataType type);
// What the dialog selects for a new detail of the type: FC01 for a BOOLEAN, FC03 otherwise.
uint8_t DefaultCodeFor(Modbus::DataType type);
// The OK corrections: an array size below 1 becomes 1 (a BOOLEAN always has 1), a scale of 0
// becomes 1.0.
void ApplyDialogCorrections(Modbus::ModbusDetail& detail);

}  // namespace maps
