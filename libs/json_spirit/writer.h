// Writes JSON text.
//
// write() puts everything on one line without blanks; write_formatted() indents by four spaces and
// puts each member and element on a line of its own, with no line end after the last line:
//     {
//         "name" : value
//     }
// Strings are written as the UTF-8 they are, bytes that are none as U+FFFD, control characters
// escaped. A real number that is no number or infinite is written as null: JSON has no word for it.
#pragma once

#include <iosfwd>
#include <string>

#include "json_spirit/value.h"

namespace json_spirit {

template <class Config>
std::string write(const Value_impl<Config>& value);
template <class Config>
std::string write_formatted(const Value_impl<Config>& value);
template <class Config>
void write(const Value_impl<Config>& value, std::ostream& stream);
template <class Config>
void write_formatted(const Value_impl<Config>& value, std::ostream& stream);

extern template std::string write(const Value&);
extern template std::string write(const Ordered_value&);
extern template std::string write_formatted(const Value&);
extern template std::string write_formatted(const Ordered_value&);
extern template void write(const Value&, std::ostream&);
extern template void write(const Ordered_value&, std::ostream&);
extern template void write_formatted(const Value&, std::ostream&);
extern template void write_formatted(const Ordered_value&, std::ostream&);

}  // namespace json_spirit
