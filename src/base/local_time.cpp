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

}  // namespace dorvo
