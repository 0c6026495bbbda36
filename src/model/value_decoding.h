#pragma once
// Reading one detail from the connected device and turning its raw registers into a typed value.
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "model/structure.h"

class ModbusClient;

// A decoded value: exactly these alternatives, in this order. A default-constructed one holds the
// first alternative (false); DecodeValue gives the int64 alternative holding 0 for an empty or
// undecodable register vector.
using DecodedValue = std::variant<bool, int64_t, double, std::string, std::vector<uint16_t>>;

// Reads the detail's registers with the master operation its function code selects, using the
// structure's unit id: 1 Read Coils and 2 Read Discrete Inputs (the result is one register, 1 when
// the first bit came back set, else 0, whatever arraySize says), 4 Read Input Registers, anything
// else Read Holding Registers, each of RegisterCountFor(detail) items at registerAddress. The
// result is the master operation's success flag.
bool ReadDetailRegisters(ModbusClient& client, uint8_t unitId, const Modbus::ModbusDetail& detail,
                         std::vector<uint16_t>& registers);

// Decodes the first element of the detail from the registers as received. The byte order permutes
// a copy of the byte image, which is then zero-filled to 8 bytes, so a short read never fails
// (missing bytes read as zero). BOOLEAN, STRING and RAW ignore the byte order. Scaling is not
// applied here.
DecodedValue DecodeValue(const std::vector<uint16_t>& registers, const Modbus::ModbusDetail& detail);

// The byte image of the registers (high byte, then low byte of each) after the byte order's
// permutation, without the zero fill.
std::vector<uint8_t> OrderedByteImage(const std::vector<uint16_t>& registers, Modbus::ByteOrder order);
