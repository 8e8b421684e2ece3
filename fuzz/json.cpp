// A JSON text: what was read is the same after it was written and read again, but for real numbers,
// which the parser may round in their last digit.
#include <algorithm>

#include "input.h"
#include "json_spirit/json_spirit.h"

using namespace dorvo;

namespace {

template <class Value>
bool hasReal(const Value& value) {
    if (value.type() == json_spirit::obj_type) {
        return std::ranges::any_of(value.get_obj(), [](const auto& member) {
            return hasReal(Value::Config_type::value(member));
        });
    }
    if (value.type() == json_spirit::array_type) {
        return std::ranges::any_of(value.get_array(), hasReal<Value>);
    }
    return value.type() == json_spirit::real_type;
}

template <class Value>
void roundTrip(const std::string& text) {
    Value value;
    try {
        json_spirit::read_or_throw(text, value);
    } catch (const json_spirit::Error_position& error) {
        fuzz::require(error.line_ != 0 && error.column_ != 0 && !error.reason_.empty());
        return;
    }
    for (const std::string& written :
         {json_spirit::write(value), json_spirit::write_formatted(value)}) {
        Value again;
        json_spirit::read_or_throw(written, again);
        fuzz::require(value == again || hasReal(value));
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(fuzz::text(data, size));
    roundTrip<json_spirit::Value>(text);
    roundTrip<json_spirit::Ordered_value>(text);
    return 0;
}
