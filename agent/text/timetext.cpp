#include "text/timetext.h"

#include <windows.h>

#include <array>
#include <cstdio>

#include "base/local_time.h"
#include "storage/wire_time.h"

namespace dorvo::agent {
namespace {

constexpr int64_t secondsTo1970 = 11'644'473'600;  // from 1601

}  // namespace

std::string localTimeText(uint64_t ticks) {
    const FILETIME file = toFileTime(ticks);
    SYSTEMTIME utc{};
    SYSTEMTIME local{};
    FILETIME localFile{};
    if (ticks == 0 || FileTimeToSystemTime(&file, &utc) == 0 ||
        SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local) == 0 ||
        SystemTimeToFileTime(&local, &localFile) == 0) {
        return {};
    }
    const std::string text = wire_time(toTicks(localFile));
    return text.substr(0, text.rfind(':'));
}

uint64_t ticksOfText(const std::string& utc) {
    std::array<int, 6> parts{};
    int end = 0;
    // The widths keep every number in range.
    // NOLINTNEXTLINE(cert-err34-c)
    const int read = std::sscanf(utc.c_str(), "%4d-%2d-%2d %2d:%2d:%2d%n", &parts[0], &parts[1],
                                 &parts[2], &parts[3], &parts[4], &parts[5], &end);
    if (read != static_cast<int>(parts.size()) || static_cast<size_t>(end) != utc.size()) {
        return 0;
    }
    const auto part = [&](size_t i) { return static_cast<WORD>(parts.at(i)); };
    const SYSTEMTIME time{.wYear = part(0),
                          .wMonth = part(1),
                          .wDayOfWeek = 0,
                          .wDay = part(2),
                          .wHour = part(3),
                          .wMinute = part(4),
                          .wSecond = part(5),
                          .wMilliseconds = 0};
    FILETIME file{};
    return SystemTimeToFileTime(&time, &file) == 0 ? 0 : toTicks(file);
}

uint64_t ticksOfInstant(int64_t instant) {
    return instant < 0 ? 0 : static_cast<uint64_t>(instant + secondsTo1970) * ticksPerSecond;
}

int64_t instantOfTicks(uint64_t ticks) {
    return static_cast<int64_t>(ticks / ticksPerSecond) - secondsTo1970;
}

}  // namespace dorvo::agent
