// Reads one JSON text (RFC 8259) from a string or from a stream up to its end.
//
// Text must be UTF-8; a byte-order mark at its start is passed over. Values nest at most maxDepth
// deep. Of two members with one name the later one counts. Numbers outside uint64_t and int64_t
// become reals, the nearest ones; one too large for a real is an error. Whatever is no JSON, bytes
// after the value included, throws an Error_position and leaves `value` as it was.
#pragma once

#include <iosfwd>
#include <string>

#include "json_spirit/value.h"

namespace json_spirit {

constexpr unsigned maxDepth = 64;

// Where a text stops being JSON; lines and columns (in bytes) are counted from 1.
struct Error_position {
    unsigned line_ = 0;
    unsigned column_ = 0;
    std::string reason_;
};

template <class Config>
void read_or_throw(const std::string& text, Value_impl<Config>& value);
template <class Config>
void read_or_throw(std::istream& stream, Value_impl<Config>& value);

extern template void read_or_throw(const std::string&, Value&);
extern template void read_or_throw(const std::string&, Ordered_value&);
extern template void read_or_throw(std::istream&, Value&);
extern template void read_or_throw(std::istream&, Ordered_value&);

}  // namespace json_spirit
