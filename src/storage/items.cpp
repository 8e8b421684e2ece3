#include "storage/items.h"

#include <utility>

#include "json_spirit/member.h"

namespace dorvo {

FailedItem readFailedItem(const json_spirit::Value& value) {
    if (value.type() != json_spirit::obj_type) {
        return {};
    }
    const json_spirit::Object& object = value.get_obj();
    const json_spirit::Value& code = member(object, "code");
    const bool number = code.type() == json_spirit::int_type && !code.is_uint64() &&
                        std::in_range<uint32_t>(code.get_int64());
    return {.path = textMember(object, "path"),
            .code = number ? static_cast<uint32_t>(code.get_int64()) : 0,
            .reason = textMember(object, "reason")};
}

std::string withoutTrailingBackslash(std::string path) {
    if (path.size() > 1 && path.back() == '\\') {
        path.pop_back();
    }
    return path;
}

}  // namespace dorvo
