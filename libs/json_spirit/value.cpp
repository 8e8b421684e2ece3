#include "json_spirit/value.h"

namespace json_spirit {

const char* value_type_name(Value_type type) {
    switch (type) {
        case obj_type: return "an object";
        case array_type: return "an array";
        case str_type: return "a string";
        case bool_type: return "a boolean";
        case int_type: return "an integer";
        case real_type: return "a real number";
        case null_type: break;
    }
    return "null";
}

const std::string& object_get_str_or_throw(const Object& object, const std::string& name) {
    const auto member = object.find(name);
    if (member == object.end()) {
        throw std::runtime_error("JSON object has no member \"" + name + "\"");
    }
    return member->second.get_str();
}

}  // namespace json_spirit
