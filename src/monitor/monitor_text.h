#pragma once
// The bus monitor's output texts: one line per frame (stdout), one CSV row per frame, and the
// statistics table of the end. These are a script format and stay the same in every language.
//
// A frame line:  TIME DIRECTION unit U NAME[, address A][, count C][, values V ...][, exception E]:
//                STATUS[, RT ms] | BYTES
//   2026-11-24T06:01:02.345Z request unit 1 FC03 Read Holding Registers, address 0, count 2: ok |
//     01 03 00 00 00 02 C4 0B
//   2026-11-24T06:01:02.360Z response unit 1 FC03 Read Holding Registers, count 2, values 10 20: ok,
//     12.3 ms | 01 03 04 00 0A 00 14 DA 3E
// (one line each; wrapped here). Times are ISO 8601 UTC with milliseconds; response times have one decimal.
#include <cstdint>
#include <map>
#include <string>

#include "monitor/bus_pairing.h"

namespace Modbus {

inline constexpr const char* kMonitorCsvHeader =
    "time;direction;unit;fc;name;address;count;values;exception;status;response_ms;bytes";
inline constexpr const char* kMonitorStatisticsHeader =
    "unit;requests;responses;exceptions;unanswered;crc_errors;rt_min_ms;rt_median_ms;rt_max_ms";

// "2026-11-24T06:01:02.345Z"
std::string IsoUtcTime(int64_t wallUs);
const char* DirectionName(FrameDirection direction);
const char* StatusName(FrameStatus status);

std::string FrameLine(const MonitorRecord& record);
std::string CsvRow(const MonitorRecord& record);
// The header, one row per unit id, then "noise bytes skipped: N"; every line ends in '\n'.
std::string StatisticsTable(const std::map<uint8_t, UnitStatistics>& statistics, uint64_t noiseBytes);

}  // namespace Modbus
