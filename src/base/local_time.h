// Time as a 64-bit count of 100-nanosecond units since 1601-01-01.
#pragma once

#include <windows.h>

#include <cstdint>

namespace dorvo {

constexpr uint64_t ticksPerMillisecond = 10'000;
constexpr uint64_t ticksPerSecond = 10'000'000;

constexpr uint64_t toTicks(const FILETIME& time) {
    return uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}
constexpr FILETIME toFileTime(uint64_t ticks) {
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

// The local wall clock: jumps with the clock and with daylight-saving time.
uint64_t localTimeNow();

// UTC.
uint64_t utcTimeNow();

// A local time as UTC, by the rules that the time zone has for that date; 0 stays 0, and a time
// outside the calendar becomes 0.
uint64_t localToUtc(uint64_t local);

}  // namespace dorvo
