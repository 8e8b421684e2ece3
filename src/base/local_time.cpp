#include "base/local_time.h"

namespace dorvo {
namespace {

uint64_t ticksOf(const SYSTEMTIME& time) {
    FILETIME converted{};
    SystemTimeToFileTime(&time, &converted);
    return toTicks(converted);
}

}  // namespace

uint64_t localTimeNow() {
    SYSTEMTIME now;
    GetLocalTime(&now);
    return ticksOf(now);
}

uint64_t utcTimeNow() {
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return toTicks(now);
}

uint64_t localToUtc(uint64_t local) {
    const FILETIME localFile = toFileTime(local);
    SYSTEMTIME localTime{};
    SYSTEMTIME utcTime{};
    if (local == 0 || !FileTimeToSystemTime(&localFile, &localTime) ||
        !TzSpecificLocalTimeToSystemTime(nullptr, &localTime, &utcTime)) {
        return 0;
    }
    return ticksOf(utcTime);
}

}  // namespace dorvo
