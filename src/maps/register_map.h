#pragma once
// Register maps: a structure's details as a CSV table, one row per detail, and back. The columns
// (any order, names case-insensitive): name, function_code, address, data_type, byte_order,
// array_size, scale, offset, unit, warn_low, warn_high, alarm_low, alarm_high, alarm_on_change.
// Only name, address and data_type are required; an absent column or an empty field takes the
// detail dialog's default, and every value goes through the dialog's corrections and refusals.
// docs/REGISTER_MAPS.md describes the format for users.
#include <string>
#include <vector>

#include "model/structure.h"

namespace maps {

// The column names in the order export writes them.
const std::vector<std::string>& RegisterMapColumns();

// Reads every row of the table into details (ids 0: the store hands them out). All or nothing:
// false at the first row that cannot be read, with `error` naming the file (as `fileName` gives
// it), the physical line, the column by its header text and what was expected, in the language of
// the command line's texts.
bool ImportRegisterMap(const std::string& text, const std::string& fileName, std::vector<Modbus::ModbusDetail>& details,
                       std::string& error);

// The details as a table in the same format: ',' between fields, a header row, one row per
// detail, LF line ends, numbers with a decimal point in their shortest exact form, data types and
// byte orders by the structures file's names, function codes in decimal.
std::string ExportRegisterMap(const std::vector<Modbus::ModbusDetail>& details);

}  // namespace maps
