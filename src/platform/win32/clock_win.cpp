#include "platform/clock.h"

#include <windows.h>

namespace platform {

int64_t MonotonicMicroseconds() {
    static const int64_t frequency = [] {
        LARGE_INTEGER f;
        QueryPerformanceFrequency(&f);
        return static_cast<int64_t>(f.QuadPart);
    }();
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    const int64_t ticks = now.QuadPart;
    return (ticks / frequency) * 1000000 + (ticks % frequency) * 1000000 / frequency;
}

int64_t UnixTimeMilliseconds() {
    FILETIME ft;
    GetSystemTimeAsFileTime(&ft);
    ULARGE_INTEGER t;
    t.LowPart = ft.dwLowDateTime;
    t.HighPart = ft.dwHighDateTime;
    // FILETIME counts 100 ns steps since 1601-01-01.
    constexpr int64_t kEpochDifferenceMs = 11644473600000LL;
    return static_cast<int64_t>(t.QuadPart / 10000) - kEpochDifferenceMs;
}

void SleepMilliseconds(uint32_t milliseconds) { Sleep(milliseconds); }

}  // namespace platform
