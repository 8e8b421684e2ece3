// What the fuzz targets share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace dorvo::fuzz {

// Ends the process when the code under test has broken a promise.
inline void require(bool kept) {
    if (!kept) {
        __builtin_trap();
    }
}

// The input as text.
inline std::string_view text(const uint8_t* data, size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

inline std::span<const std::byte> bytes(const uint8_t* data, size_t size) {
    return {reinterpret_cast<const std::byte*>(data), size};
}

// Takes the part before the mark off the front; all of it when there is none.
inline std::string_view takeUntil(std::string_view& text, char mark) {
    const size_t end = text.find(mark);
    const std::string_view part = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return part;
}

}  // namespace dorvo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
