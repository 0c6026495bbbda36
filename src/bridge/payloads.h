#pragma once
// The JSON payloads the bridge publishes. Their keys and their order are fixed:
//   value:  {"value": V, "text": "...", "unit": "...", "valid": true, "time": "..."}
//   alarm:  {"type": N, "kind": "...", "detail": "...", "message": "...", "time": "..."}
// Times are ISO 8601 UTC with milliseconds and a "Z". Text that is not UTF-8 is published with
// U+FFFD in place of each stray byte, so the payload always stays valid JSON.
#include <cstdint>
#include <string>

#include "model/alarm_engine.h"
#include "model/structure.h"
#include "polling/polling_engine.h"

// "2026-11-24T04:30:23.123Z"
std::string IsoTimeUtc(int64_t unixMilliseconds);

// A JSON string literal, quotes included.
std::string JsonString(const std::string& text);

// The JSON value of a detail's result: the engineering value (raw * scale + offset) as a number for
// the numeric types (an unscaled integer exactly, others with up to 15 significant digits; null when
// it is not finite), true/false for a bool, the display text for a string or a register array;
// null for a result that is not valid.
std::string ValueJson(const Modbus::ModbusDetail& detail, const Modbus::PollingResult& result);

// Valid means read and decoded: a failed read, and a read that answered with no registers, are not.
bool IsValidResult(const Modbus::PollingResult& result);

// The text as the "Live Values" box shows it: "[Fehler]" for a failed read.
std::string LiveValueText(const Modbus::PollingResult& result);

std::string ValuePayload(const Modbus::ModbusDetail& detail, const Modbus::PollingResult& result, int64_t timeMs);
std::string AlarmPayload(const Modbus::AlarmEvent& event);
