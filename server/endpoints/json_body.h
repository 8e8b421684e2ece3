// A request's JSON body, read strictly: what is missing or of another type is a 400 that names it.
//
// It comes from strangers: as it is read it is refused where it is deeper, or holds more values,
// than any request has use for, so that a small text cannot become a large tree.
#pragma once

#include <boost/json/fwd.hpp>
#include <cstdint>
#include <string>
#include <string_view>

namespace dorvo {

// The longest path that is accepted, in bytes.
inline constexpr size_t maxPathBytes = size_t{128} * 1024;

// More than any request but those with lists has use for.
inline constexpr size_t fewValues = 20000;

// The body must be one JSON object in UTF-8, with at most that many values in all. Throws
// ServiceError: 413 for too many of whatever it is, 400 for what is none or too deep.
boost::json::object parseBody(std::string_view body, size_t values = fewValues);

const boost::json::array& arrayMember(const boost::json::object& object, std::string_view key);
const boost::json::object& objectMember(const boost::json::object& object, std::string_view key);

// Text of at most `limit` bytes without NUL; the result lives as long as the object.
std::string_view textMember(const boost::json::object& object, std::string_view key, size_t limit);

// Any text.
std::string_view anyTextMember(const boost::json::object& object, std::string_view key);

uint32_t u32Member(const boost::json::object& object, std::string_view key);
// A number from 0 to 2^63-1.
int64_t countMember(const boost::json::object& object, std::string_view key);
// true, false, 1 or 0.
bool flagMember(const boost::json::object& object, std::string_view key);

// Two halves of one unsigned 64-bit number.
uint64_t joinHalves(uint32_t high, uint32_t low);

// The element of an array as an object; `what` names the array.
const boost::json::object& objectElement(const boost::json::value& value, std::string_view what);

// A source path: not empty, not too long, without NUL.
bool isPath(std::string_view path);
std::string_view checkPath(std::string_view path);
// Ids are short and printable: they go into logs and answers as they are.
std::string_view checkId(std::string_view id, std::string_view what);

}  // namespace dorvo
