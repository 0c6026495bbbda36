#pragma once
// Calendar dates from day counts, computed here rather than by the C library's gmtime so that the
// time stamps of files and lines come out the same on every platform and in every time zone.
#include <cstdint>

// Days since 1970-01-01 to a civil date (proleptic Gregorian); negative days are dates before 1970.
void CivilFromDays(int64_t days, int64_t& year, unsigned& month, unsigned& day);
