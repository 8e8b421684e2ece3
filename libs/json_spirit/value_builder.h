// Builds a value from what the parser tells of, one call a piece, in the order of the text.
//
// Numbers are read from their own digits: the parser's reals are a bit off now and then, and one
// that is too large has no value. The names of the calls are the parser's.
#pragma once

#include <boost/json/error.hpp>
#include <boost/json/string_view.hpp>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "json_spirit/value.h"

namespace json_spirit {

template <class Config>
class Value_builder {
public:
    using Value = Value_impl<Config>;
    using Text = boost::json::string_view;
    using Error = boost::json::error_code;

    static constexpr size_t max_object_size = PTRDIFF_MAX;
    static constexpr size_t max_array_size = PTRDIFF_MAX;
    static constexpr size_t max_key_size = PTRDIFF_MAX;
    static constexpr size_t max_string_size = PTRDIFF_MAX;

    // What has been built.
    Value take() { return std::move(value_); }

    bool on_document_begin(Error&) { return true; }
    bool on_document_end(Error&) { return true; }
    bool on_object_begin(Error&) { return open(true); }
    bool on_object_end(size_t, Error&) { return close(&Level::members); }
    bool on_array_begin(Error&) { return open(false); }
    bool on_array_end(size_t, Error&) { return close(&Level::elements); }
    bool on_key_part(Text part, size_t, Error&) { return collect(part); }
    bool on_key(Text part, size_t, Error&) {
        collect(part);
        levels_.back().name = std::exchange(text_, {});
        return true;
    }
    bool on_string_part(Text part, size_t, Error&) { return collect(part); }
    bool on_string(Text part, size_t, Error&) {
        collect(part);
        return add(std::exchange(text_, {}));
    }
    bool on_number_part(Text part, Error&) { return collect(part); }
    bool on_int64(int64_t number, Text, Error&) {
        text_.clear();
        return add(number);
    }
    bool on_uint64(uint64_t number, Text, Error&) {
        text_.clear();
        return add(number);
    }
    bool on_double(double about, Text part, Error& error) {
        collect(part);
        const std::string digits = std::exchange(text_, {});
        if (std::isinf(about)) {
            error = boost::json::error::exponent_overflow;
            return false;
        }
        double number = 0;
        const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), number);
        if (read.ec == std::errc::result_out_of_range && std::abs(about) > 1) {
            error = boost::json::error::exponent_overflow;
            return false;
        }
        // What is too small for a real is the nearest one.
        return add(read.ec == std::errc() ? number : about);
    }
    bool on_bool(bool truth, Error&) { return add(truth); }
    bool on_null(Error&) { return add({}); }
    bool on_comment_part(Text, Error&) { return true; }
    bool on_comment(Text, Error&) { return true; }

private:
    // An object or an array whose end has not come.
    struct Level {
        bool isObject;
        std::string name;  // of the member that follows
        typename Value::Object members;
        std::set<std::string, std::less<>> names;  // of the members so far
        typename Value::Array elements;
    };

    bool collect(Text part) {
        text_.append(part.data(), part.size());
        return true;
    }
    bool open(bool isObject) {
        levels_.push_back({isObject, {}, {}, {}, {}});
        return true;
    }
    template <class Content>
    bool close(Content Level::*content) {
        Value whole(std::move(levels_.back().*content));
        levels_.pop_back();
        return add(std::move(whole));
    }
    bool add(Value value) {
        if (levels_.empty()) {
            value_ = std::move(value);
            return true;
        }
        Level& level = levels_.back();
        if (!level.isObject) {
            level.elements.push_back(std::move(value));
        } else if (level.names.insert(level.name).second) {
            level.members.insert(level.members.end(), {level.name, std::move(value)});
        } else {
            Config::add(level.members, level.name, std::move(value));
        }
        return true;
    }

    Value value_;
    std::vector<Level> levels_;
    std::string text_;  // of the name, string or number under way
};

}  // namespace json_spirit
