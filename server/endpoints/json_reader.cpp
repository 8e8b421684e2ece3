#include "endpoints/json_reader.h"

#include <boost/json.hpp>
#include <boost/json/basic_parser_impl.hpp>
#include <string>

#include "support/service_error.h"

namespace dorvo {

namespace json = boost::json;

namespace {

constexpr size_t maxDepth = 16;

// What the parser tells of what it reads: builds the values, and counts them.
class Builder {
public:
    // The parser itself keeps to these.
    static constexpr size_t max_object_size = 1000;
    static constexpr size_t max_array_size = 100000;
    static constexpr size_t max_key_size = 256;
    static constexpr size_t max_string_size = size_t{1} << 20U;

    explicit Builder(size_t values) : left_(values) {}

    json::value release() { return stack_.release(); }

    bool on_document_begin(json::error_code& /*error*/) { return true; }
    bool on_document_end(json::error_code& /*error*/) { return true; }
    bool on_object_begin(json::error_code& error) { return count(error); }
    bool on_object_end(size_t members, json::error_code& /*error*/) {
        stack_.push_object(members);
        return true;
    }
    bool on_array_begin(json::error_code& error) { return count(error); }
    bool on_array_end(size_t elements, json::error_code& /*error*/) {
        stack_.push_array(elements);
        return true;
    }
    bool on_key_part(json::string_view text, size_t /*size*/, json::error_code& /*error*/) {
        stack_.push_chars(text);
        return true;
    }
    bool on_key(json::string_view text, size_t /*size*/, json::error_code& /*error*/) {
        stack_.push_key(text);
        return true;
    }
    bool on_string_part(json::string_view text, size_t /*size*/, json::error_code& /*error*/) {
        stack_.push_chars(text);
        return true;
    }
    bool on_string(json::string_view text, size_t /*size*/, json::error_code& error) {
        stack_.push_string(text);
        return count(error);
    }
    bool on_number_part(json::string_view /*text*/, json::error_code& /*error*/) { return true; }
    bool on_int64(int64_t number, json::string_view /*text*/, json::error_code& error) {
        stack_.push_int64(number);
        return count(error);
    }
    bool on_uint64(uint64_t number, json::string_view /*text*/, json::error_code& error) {
        stack_.push_uint64(number);
        return count(error);
    }
    bool on_double(double number, json::string_view /*text*/, json::error_code& error) {
        stack_.push_double(number);
        return count(error);
    }
    bool on_bool(bool flag, json::error_code& error) {
        stack_.push_bool(flag);
        return count(error);
    }
    bool on_null(json::error_code& error) {
        stack_.push_null();
        return count(error);
    }
    bool on_comment_part(json::string_view /*text*/, json::error_code& /*error*/) { return true; }
    bool on_comment(json::string_view /*text*/, json::error_code& /*error*/) { return true; }

private:
    bool count(json::error_code& error) {
        if (left_ == 0) {
            error = json::error::array_too_large;
            return false;
        }
        --left_;
        return true;
    }

    json::value_stack stack_;
    size_t left_;
};

bool isTooMuch(const json::error_code& error) {
    return error == json::error::array_too_large || error == json::error::object_too_large ||
           error == json::error::key_too_large || error == json::error::string_too_large;
}

}  // namespace

json::value readJson(std::string_view text, size_t values) {
    json::parse_options options;
    options.max_depth = maxDepth;
    json::basic_parser<Builder> parser(options, values);
    json::error_code error;
    const size_t read = parser.write_some(false, text.data(), text.size(), error);
    if (!error && read < text.size()) {
        error = json::error::extra_data;
    }
    if (isTooMuch(error)) {
        throw ServiceError(413, "the body holds too much: " + error.message());
    }
    if (error) {
        throw ServiceError(400, "the body is not JSON: " + error.message());
    }
    return parser.handler().release();
}

}  // namespace dorvo
