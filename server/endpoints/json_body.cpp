#include "endpoints/json_body.h"

#include <boost/json.hpp>
#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/src.hpp>
#include <limits>
#include <string>

#include "common/service_error.h"

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

[[noreturn]] void refuse(std::string_view key, std::string_view expected) {
    throw ServiceError(400, "\"" + std::string(key) + "\" must be " + std::string(expected));
}

const json::value& member(const json::object& object, std::string_view key) {
    const json::value* value = object.if_contains(key);
    if (value == nullptr) {
        throw ServiceError(400, "\"" + std::string(key) + "\" is missing");
    }
    return *value;
}

// The value as a number that is not negative.
bool unsignedNumber(const json::value& value, uint64_t& number) {
    if (const uint64_t* large = value.if_uint64()) {
        number = *large;
        return true;
    }
    const int64_t* small = value.if_int64();
    if (small == nullptr || *small < 0) {
        return false;
    }
    number = static_cast<uint64_t>(*small);
    return true;
}

}  // namespace

json::object parseBody(std::string_view body, size_t values) {
    json::value value = readJson(body, values);
    if (!value.is_object()) {
        throw ServiceError(400, "the body must be a JSON object");
    }
    return std::move(value.as_object());
}

const json::array& arrayMember(const json::object& object, std::string_view key) {
    const json::array* array = member(object, key).if_array();
    if (array == nullptr) {
        refuse(key, "an array");
    }
    return *array;
}

const json::object& objectMember(const json::object& object, std::string_view key) {
    const json::object* inner = member(object, key).if_object();
    if (inner == nullptr) {
        refuse(key, "an object");
    }
    return *inner;
}

std::string_view anyTextMember(const json::object& object, std::string_view key) {
    const json::string* text = member(object, key).if_string();
    if (text == nullptr) {
        refuse(key, "a string");
    }
    return {text->data(), text->size()};
}

std::string_view textMember(const json::object& object, std::string_view key, size_t limit) {
    const std::string_view text = anyTextMember(object, key);
    if (text.size() > limit) {
        refuse(key, "at most " + std::to_string(limit) + " bytes long");
    }
    if (text.find('\0') != std::string_view::npos) {
        refuse(key, "without NUL");
    }
    return text;
}

uint32_t u32Member(const json::object& object, std::string_view key) {
    uint64_t number = 0;
    if (!unsignedNumber(member(object, key), number) ||
        number > std::numeric_limits<uint32_t>::max()) {
        refuse(key, "an unsigned 32-bit number");
    }
    return static_cast<uint32_t>(number);
}

int64_t countMember(const json::object& object, std::string_view key) {
    uint64_t number = 0;
    if (!unsignedNumber(member(object, key), number) ||
        number > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
        refuse(key, "a number that is not negative");
    }
    return static_cast<int64_t>(number);
}

bool flagMember(const json::object& object, std::string_view key) {
    const json::value& value = member(object, key);
    if (const bool* flag = value.if_bool()) {
        return *flag;
    }
    uint64_t number = 0;
    if (!unsignedNumber(value, number) || number > 1) {
        refuse(key, "true or false");
    }
    return number == 1;
}

uint64_t joinHalves(uint32_t high, uint32_t low) {
    return (uint64_t{high} << 32U) | low;
}

const json::object& objectElement(const json::value& value, std::string_view what) {
    const json::object* object = value.if_object();
    if (object == nullptr) {
        refuse(what, "an array of objects");
    }
    return *object;
}

bool isPath(std::string_view path) {
    return !path.empty() && path.size() <= maxPathBytes &&
           path.find('\0') == std::string_view::npos;
}

std::string_view checkPath(std::string_view path) {
    if (path.empty()) {
        throw ServiceError(400, "a path is empty");
    }
    if (path.size() > maxPathBytes) {
        throw ServiceError(400, "a path is too long");
    }
    if (path.find('\0') != std::string_view::npos) {
        throw ServiceError(400, "a path holds NUL");
    }
    return path;
}

std::string_view checkId(std::string_view id, std::string_view what) {
    if (id.empty()) {
        refuse(what, "not empty");
    }
    for (const char c : id) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
            refuse(what, "without control characters");
        }
    }
    return id;
}

}  // namespace dorvo
