// Numbers as people read them. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace dorvo::agent {

// "512 B", "1.5 KiB", "3.0 GiB": one decimal from a KiB on.
std::string bytesText(uint64_t bytes);

// "0:07", "12:30", "3:05:00".
std::string durationText(uint64_t seconds);

// "1 file", "2 files".
std::string countText(uint64_t count, std::string_view noun);

// Columns that a UTF-8 text takes when each character takes one.
size_t columnsOf(std::string_view utf8);

// The text itself when it fits, else its beginning and end around "...", `columns` wide; as much of
// the beginning as fits when there is no room for that.
std::string shortened(std::string_view utf8, size_t columns);

}  // namespace dorvo::agent
