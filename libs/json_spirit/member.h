// Members of a document that anybody may have written: what is not there, or of another type, reads
// as nothing. `members` is an Object, or another map of names and values.
#pragma once

#include <string>

#include "json_spirit/value.h"

namespace json_spirit {

// Null where there is none.
template <class Members>
const Value& member(const Members& members, const char* name) {
    const auto found = members.find(name);
    return found == members.end() ? Value::null : found->second;
}

// Empty where it is no text.
template <class Members>
std::string textMember(const Members& members, const char* name) {
    const Value& value = member(members, name);
    return value.type() == str_type ? value.get_str() : std::string();
}

// 0 where it is no number, or a negative one.
template <class Members>
uint64_t numberMember(const Members& members, const char* name) {
    const Value& value = member(members, name);
    const bool natural = value.type() == int_type && (value.is_uint64() || value.get_int64() >= 0);
    return natural ? value.get_uint64() : 0;
}

}  // namespace json_spirit
