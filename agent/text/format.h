// Values as lines show them: numbers with their units, times, texts from elsewhere, columns.
//
// Pure, but for localTimeText(), which asks for this machine's zone. Texts are UTF-8. Ticks are
// FILETIME counts of UTC, 0 for none; instants are seconds since 1970, negative for none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

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

// '?' for each control character, U+FFFD for what is no UTF-8: what a server or a backup calls its
// files neither drives the terminal nor begins a line of its own. Not for JSON, which escapes.
std::string printable(std::string_view utf8);

// The rows under their headings, a line each; every column but the last is as wide as its widest
// cell.
std::string tableText(const std::vector<std::string>& headings,
                      const std::vector<std::vector<std::string>>& rows);

// "2026-11-23 02:00" on the clock of this machine; empty for none.
std::string localTimeText(uint64_t ticks);

// Of "2026-1-2 03:04:05" (UTC); 0 for any other text.
uint64_t ticksOfText(const std::string& utc);

// Seconds since 1970 and back; a negative instant is none.
uint64_t ticksOfInstant(int64_t instant);
int64_t instantOfTicks(uint64_t ticks);

}  // namespace dorvo::agent
