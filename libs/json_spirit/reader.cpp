#include "json_spirit/reader.h"

#include <algorithm>
#include <boost/json/parser.hpp>
#include <cmath>
#include <istream>
#include <iterator>
#include <string_view>

namespace json_spirit {
namespace {

[[noreturn]] void fail(std::string_view text, size_t offset, std::string reason) {
    const std::string_view before = text.substr(0, offset);
    const auto line = std::count(before.begin(), before.end(), '\n');
    const size_t start = before.rfind('\n') + 1;  // npos + 1 is 0
    throw Error_position{static_cast<unsigned>(line) + 1, static_cast<unsigned>(offset - start) + 1,
                         std::move(reason)};
}

template <class Config>
Value_impl<Config> convert(const boost::json::value& parsed) {
    using Value_t = Value_impl<Config>;
    switch (parsed.kind()) {
        case boost::json::kind::null: break;
        case boost::json::kind::bool_: return parsed.get_bool();
        case boost::json::kind::int64: return parsed.get_int64();
        case boost::json::kind::uint64: return parsed.get_uint64();
        case boost::json::kind::double_: return parsed.get_double();
        case boost::json::kind::string: return std::string(parsed.get_string());
        case boost::json::kind::array: {
            typename Value_t::Array elements;
            elements.reserve(parsed.get_array().size());
            for (const boost::json::value& element : parsed.get_array()) {
                elements.push_back(convert<Config>(element));
            }
            return elements;
        }
        case boost::json::kind::object: {
            typename Value_t::Object members;
            for (const auto& member : parsed.get_object()) {
                // The parser has dropped earlier members of the same name.
                Value_t value = convert<Config>(member.value());
                members.insert(members.end(), {std::string(member.key()), std::move(value)});
            }
            return members;
        }
    }
    return {};
}

}  // namespace

template <class Config>
void read_or_throw(const std::string& whole, Value_impl<Config>& value) {
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    std::string_view text = whole;
    if (text.starts_with(mark)) {
        text.remove_prefix(mark.size());
    }
    boost::json::parse_options options;
    options.max_depth = maxDepth;
    boost::json::parser parser({}, options);
    boost::system::error_code error;
    const size_t end = parser.write_some(text.data(), text.size(), error);
    if (error) {
        fail(text, end, error.message());
    }
    const size_t rest = text.find_first_not_of(" \t\r\n", end);
    if (rest != std::string_view::npos) {
        fail(text, rest, "extra data");
    }
    value = convert<Config>(parser.release());
}

template <class Config>
void read_or_throw(std::istream& stream, Value_impl<Config>& value) {
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    read_or_throw(text, value);
}

template void read_or_throw(const std::string&, Value&);
template void read_or_throw(const std::string&, Ordered_value&);
template void read_or_throw(std::istream&, Value&);
template void read_or_throw(std::istream&, Ordered_value&);

}  // namespace json_spirit
