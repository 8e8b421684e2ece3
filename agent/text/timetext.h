// Points in time as people and scripts read them. Ticks are FILETIME counts of UTC, 0 for none.
#pragma once

#include <cstdint>
#include <string>

namespace dorvo::agent {

// "2026-11-23 02:00" on the clock of this machine; empty for none.
std::string localTimeText(uint64_t ticks);

// Of "2026-1-2 03:04:05" (UTC); 0 for any other text.
uint64_t ticksOfText(const std::string& utc);

// Seconds since 1970 and back; a negative instant is none.
uint64_t ticksOfInstant(int64_t instant);
int64_t instantOfTicks(uint64_t ticks);

}  // namespace dorvo::agent
