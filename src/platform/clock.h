#pragma once
// The platform seam for time: a monotonic high-resolution clock, wall-clock milliseconds since
// 1970-01-01 UTC and a millisecond sleep.
#include <cstdint>

namespace platform {

int64_t MonotonicMicroseconds();
int64_t UnixTimeMilliseconds();
void SleepMilliseconds(uint32_t milliseconds);

}  // namespace platform
