#pragma once
// Turning a decoded value into a number (for the alarm engine and the recording) and into the text
// the live values show. Shared by the polling engine and the command line's decode.
#include <string>

#include "model/structure.h"
#include "model/value_decoding.h"

// The raw number of a value: a bool is 0 or 1, an integer and a double as they are, a string 0,
// a register array its first register (0 when empty).
double NumericValue(const DecodedValue& value);

// The display text of a value of a detail: "ON"/"OFF" for a bool; an integer in decimal when the
// detail is unscaled (scale 1, offset 0), else raw * scale + offset with 3 decimals; a double as
// raw * scale + offset with 3 decimals; a string as it is; a register array as 4-digit upper-case
// hexadecimal registers separated by blanks. A number is followed by a blank and the unit when the
// detail has one.
std::string FormatDisplayText(const Modbus::ModbusDetail& detail, const DecodedValue& value);
