#include "storage/wire_time.h"

#include <windows.h>

#include <cstdio>

#include "base/local_time.h"

namespace dorvo {

std::string wire_time(uint64_t ticks) {
    const FILETIME file = toFileTime(ticks);
    SYSTEMTIME time{};
    if (ticks == 0 || !FileTimeToSystemTime(&file, &time)) {
        return {};
    }
    char text[32];
    static_cast<void>(std::snprintf(text, sizeof(text), "%d-%.2d-%.2d %.2d:%.2d:%.2d", time.wYear,
                                    time.wMonth, time.wDay, time.wHour, time.wMinute,
                                    time.wSecond));
    return text;
}

}  // namespace dorvo
