#include "text/units.h"

#include <array>
#include <cstdio>
#include <vector>

namespace dorvo::agent {
namespace {

bool continues(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

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

}  // namespace dorvo::agent
