#include "text/format.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <vector>

#include "base/local_time.h"
#include "base/text.h"
#include "storage/wire_time.h"

namespace dorvo::agent {
namespace {

bool continues(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

constexpr int64_t secondsTo1970 = 11'644'473'600;  // from 1601

}  // namespace

std::string bytesText(uint64_t bytes) {
    static constexpr std::array<const char*, 6> units = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    constexpr uint64_t step = 1024;
    if (bytes < step) {
        return std::to_string(bytes) + " B";
    }
    // Tenths, so that 1023.95 KiB is shown as 1.0 MiB and not as 1024.0 KiB.
    double value = static_cast<double>(bytes) / step;
    size_t unit = 0;
    while (value >= 1023.95 && unit + 1 < units.size()) {
        value /= step;
        ++unit;
    }
    std::array<char, 32> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "%.1f %s", value, units.at(unit)));
    return text.data();
}

std::string durationText(uint64_t seconds) {
    constexpr uint64_t minute = 60;
    constexpr uint64_t hour = 3600;
    const auto twoDigits = [](uint64_t value) {
        return (value < 10 ? "0" : "") + std::to_string(value);
    };
    const std::string tail = twoDigits(seconds % minute);
    if (seconds < hour) {
        return std::to_string(seconds / minute) + ":" + tail;
    }
    return std::to_string(seconds / hour) + ":" + twoDigits(seconds % hour / minute) + ":" + tail;
}

std::string countText(uint64_t count, std::string_view noun) {
    std::string text = std::to_string(count) + " " + std::string(noun);
    return count == 1 ? text : text + "s";
}

size_t columnsOf(std::string_view utf8) {
    size_t columns = 0;
    for (const char byte : utf8) {
        columns += continues(byte) ? 0U : 1U;
    }
    return columns;
}

std::string shortened(std::string_view utf8, size_t columns) {
    std::vector<size_t> starts;
    for (size_t i = 0; i < utf8.size(); ++i) {
        if (!continues(utf8[i])) {
            starts.push_back(i);
        }
    }
    if (starts.size() <= columns) {
        return std::string(utf8);
    }
    constexpr std::string_view gap = "...";
    if (columns < gap.size() + 2) {
        return std::string(utf8.substr(0, starts.at(columns)));
    }
    const size_t kept = columns - gap.size();
    const size_t head = kept / 3;  // the end of a path tells more than its beginning
    std::string text(utf8.substr(0, starts.at(head)));
    return text.append(gap).append(utf8.substr(starts.at(starts.size() - (kept - head))));
}

std::string printable(std::string_view utf8) {
    const auto isControl = [](wchar_t c) {
        constexpr wchar_t firstVisible = 0x20;
        constexpr wchar_t lastControl = 0x9F;
        return c < firstVisible || (c >= 0x7F && c <= lastControl);
    };
    std::wstring text = toWide(utf8);
    std::replace_if(text.begin(), text.end(), isControl, L'?');
    return toUtf8(text);
}

std::string tableText(const std::vector<std::string>& headings,
                      const std::vector<std::vector<std::string>>& rows) {
    constexpr size_t gap = 2;
    std::vector<std::vector<std::string>> lines = {headings};
    lines.insert(lines.end(), rows.begin(), rows.end());
    std::vector<size_t> widths(headings.size(), 0);
    for (auto& line : lines) {
        for (size_t i = 0; i < line.size(); ++i) {
            line[i] = printable(line[i]);
            widths.at(i) = std::max(widths.at(i), columnsOf(line[i]));
        }
    }
    std::string text;
    for (const auto& line : lines) {
        for (size_t i = 0; i < line.size(); ++i) {
            text += line[i];
            if (i + 1 < line.size()) {
                text.append(widths[i] - columnsOf(line[i]) + gap, ' ');
            }
        }
        text += '\n';
    }
    return text;
}

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
