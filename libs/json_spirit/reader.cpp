#include "json_spirit/reader.h"

#include <algorithm>
#include <boost/json/basic_parser_impl.hpp>
#include <istream>
#include <iterator>
#include <string_view>

#include "json_spirit/value_builder.h"

namespace json_spirit {
namespace {

[[noreturn]] void fail(std::string_view text, size_t offset, std::string reason) {
    const std::string_view before = text.substr(0, offset);
    const auto line = std::count(before.begin(), before.end(), '\n');
    const size_t start = before.rfind('\n') + 1;  // npos + 1 is 0
    throw Error_position{static_cast<unsigned>(line) + 1, static_cast<unsigned>(offset - start) + 1,
                         std::move(reason)};
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
    boost::json::basic_parser<Value_builder<Config>> parser(options);
    boost::json::error_code error;
    const size_t end = parser.write_some(false, text.data(), text.size(), error);
    if (error) {
        fail(text, end, error.message());
    }
    const size_t rest = text.find_first_not_of(" \t\r\n", end);
    if (rest != std::string_view::npos) {
        fail(text, rest, "extra data");
    }
    value = parser.handler().take();
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
