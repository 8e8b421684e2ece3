#include "storage/items.h"

#include <utility>

namespace dorvo {
namespace {

const json_spirit::Value& member(const json_spirit::Object& object, const char* name) {
    const auto found = object.find(name);
    return found == object.end() ? json_spirit::Value::null : found->second;
}

std::string textOf(const json_spirit::Value& value) {
    return value.type() == json_spirit::str_type ? value.get_str() : std::string();
}

}  // namespace

FailedItem readFailedItem(const json_spirit::Value& value) {
    if (value.type() != json_spirit::obj_type) {
        return {};
    }
    const json_spirit::Object& object = value.get_obj();
    const json_spirit::Value& code = member(object, "code");
    const bool number = code.type() == json_spirit::int_type && !code.is_uint64() &&
                        std::in_range<uint32_t>(code.get_int64());
    return {.path = textOf(member(object, "path")),
            .code = number ? static_cast<uint32_t>(code.get_int64()) : 0,
            .reason = textOf(member(object, "reason"))};
}

std::string withoutTrailingBackslash(std::string path) {
    if (path.size() > 1 && path.back() == '\\') {
        path.pop_back();
    }
    return path;
}

}  // namespace dorvo
