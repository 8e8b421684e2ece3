#include "record/jobactivity.h"

#include <algorithm>
#include <atomic>
#include <cstring>

namespace dorvo {
namespace {

constexpr uint64_t ticksPerSecond = 10'000'000;

uint64_t sum(uint64_t a, uint64_t b) {
    return a > UINT64_MAX - b ? UINT64_MAX : a + b;
}

// Any two numbers, without overflow.
int percent(uint64_t part, uint64_t whole) {
    if (whole == 0) {
        return 0;
    }
    if (part >= whole) {
        return 100;
    }
    const bool exact = part <= UINT64_MAX / 100;
    return static_cast<int>(exact ? part * 100 / whole
                                  : std::min<uint64_t>(part / (whole / 100), 99));
}

bool isHighSurrogate(wchar_t unit) {
    return (static_cast<uint32_t>(unit) & 0xFC00U) == 0xD800U;
}

// The UTF-16 units between the path's offset and the record's end; none for an offset that would
// run into the fixed fields or out of the record.
size_t pathUnits(uint32_t offset) {
    const bool sensible = offset >= JobActivity::fixedSize && offset < JobActivity::recordSize;
    return sensible ? (JobActivity::recordSize - offset) / sizeof(char16_t) : 0;
}

}  // namespace

void JobActivity::reset(int32_t newState, bool full) {
    const auto zero = [this](size_t from, size_t to) {
        std::memset(reinterpret_cast<std::byte*>(this) + from, 0, to - from);
    };
    if (firstWord() != version1) {
        minorVersion = 0;
        majorVersion = 1;
    }
    if (baseSize != fixedSize) {
        baseSize = fixedSize;
    }
    std::atomic_signal_fence(std::memory_order_seq_cst);
    state = newState;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    if (full) {
        lastRunState = 0;
        zero(offsetof(JobActivity, lastRunTime), offsetof(JobActivity, state));
    }
    acceptedBlocks = 0;
    zero(offsetof(JobActivity, pendingState), sizeof(*this));
}

bool JobActivity::isBlank() const {
    const auto* bytes = reinterpret_cast<const std::byte*>(this);
    return std::all_of(bytes, bytes + sizeof(*this), [](std::byte b) { return b == std::byte{0}; });
}

int JobActivity::progress() const {
    return percent(sum(doneSize, fileOffset), totalSize);
}

int JobActivity::fileProgress() const {
    return percent(fileOffset, fileSize);
}

uint64_t JobActivity::usedSeconds() const {
    return std::max<uint64_t>(usedTime / ticksPerSecond, 1);
}

uint64_t JobActivity::speed() const {
    return transferred / usedSeconds();
}

uint64_t JobActivity::AverageSpeed() const {
    return doneSize / usedSeconds();
}

uint64_t JobActivity::remainTime() const {
    const uint64_t behind = sum(doneSize, fileOffset);
    const uint64_t left = totalSize > behind ? totalSize - behind : 0;
    return left / std::max<uint64_t>(AverageSpeed(), 1);
}

std::wstring JobActivity::currentFilePath() const {
    const auto* bytes = reinterpret_cast<const std::byte*>(this);
    const size_t capacity = pathUnits(baseSize);
    std::wstring result;
    for (size_t i = 0; i < capacity; ++i) {
        char16_t unit = 0;
        std::memcpy(&unit, bytes + baseSize + i * sizeof(unit), sizeof(unit));
        if (unit == 0) {
            break;
        }
        result += static_cast<wchar_t>(unit);
    }
    return result;
}

void JobActivity::currentFilePath(std::wstring_view newPath) {
    auto* bytes = reinterpret_cast<std::byte*>(this);
    const size_t capacity = pathUnits(baseSize);
    if (capacity == 0) {
        return;
    }
    size_t length = std::min(newPath.size(), capacity - 1);
    if (length < newPath.size() && length > 0 && isHighSurrogate(newPath[length - 1])) {
        --length;
    }
    for (size_t i = 0; i <= length; ++i) {
        const char16_t unit = i < length ? static_cast<char16_t>(newPath[i]) : u'\0';
        std::memcpy(bytes + baseSize + i * sizeof(unit), &unit, sizeof(unit));
    }
}

bool JobActivity::hasInstance() const {
    return std::any_of(instanceId.begin(), instanceId.end(),
                       [](uint8_t byte) { return byte != 0; });
}

}  // namespace dorvo
