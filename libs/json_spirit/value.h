// JSON values over narrow UTF-8 strings, on Boost.Variant.
//
// A Value is null, a string, an object, an array, a bool, an integer or a real number. It owns what
// it holds and copies deeply. Getters throw std::runtime_error when the value is of another type.
// Not locked: one thread at a time.
//
// Two kinds differ in what an object is. Value keeps members in a std::map, so in ascending byte
// order of their names; Ordered_value keeps them in a vector, in the order they were added or read.
#pragma once

#include <boost/variant.hpp>
#include <concepts>
#include <cstdint>
#include <limits>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace json_spirit {

enum Value_type { obj_type, array_type, str_type, bool_type, int_type, real_type, null_type };

// "an object", "a string": for messages.
const char* value_type_name(Value_type type);

struct Null {
    bool operator==(const Null&) const = default;
};

template <class Config>
class Value_impl {
public:
    using Config_type = Config;
    using String_type = typename Config::String_type;
    using Object = typename Config::Object_type;
    using Array = typename Config::Array_type;

    static const Value_impl null;

    Value_impl() : value_(Null()) {}
    Value_impl(const char* text) : value_(String_type(text)) {}
    Value_impl(String_type text) : value_(std::move(text)) {}
    Value_impl(Object members) : value_(std::move(members)) {}
    Value_impl(Array elements) : value_(std::move(elements)) {}
    Value_impl(double number) : value_(number) {}
    template <std::same_as<bool> Bool>
    Value_impl(Bool truth) : value_(truth) {}
    // An unsigned number that an int64_t holds is kept as one, so equal numbers compare equal.
    template <std::integral Int>
    requires(!std::same_as<Int, bool>) Value_impl(Int number)
        : value_(static_cast<int64_t>(number)) {
        if constexpr (std::unsigned_integral<Int>) {
            if (number > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
                value_ = static_cast<uint64_t>(number);
            }
        }
    }

    Value_type type() const {
        constexpr Value_type types[] = {null_type, str_type, obj_type, array_type,
                                        bool_type, int_type, int_type, real_type};
        return types[value_.which()];
    }
    bool is_null() const { return type() == null_type; }
    // An integer above the largest int64_t.
    bool is_uint64() const { return boost::get<uint64_t>(&value_) != nullptr; }

    const String_type& get_str() const { return held<String_type>(str_type); }
    const Object& get_obj() const { return held<Object>(obj_type); }
    Object& get_obj() { return const_cast<Object&>(std::as_const(*this).get_obj()); }
    const Array& get_array() const { return held<Array>(array_type); }
    Array& get_array() { return const_cast<Array&>(std::as_const(*this).get_array()); }
    bool get_bool() const { return held<bool>(bool_type); }

    // The integer getters throw for a number outside their range too.
    int get_int() const {
        const int64_t number = get_int64();
        if (!std::in_range<int>(number)) {
            throw std::runtime_error("JSON integer is out of range");
        }
        return static_cast<int>(number);
    }
    int64_t get_int64() const {
        if (is_uint64()) {
            throw std::runtime_error("JSON integer is out of range");
        }
        return held<int64_t>(int_type);
    }
    uint64_t get_uint64() const {
        if (is_uint64()) {
            return held<uint64_t>(int_type);
        }
        const int64_t number = get_int64();
        if (number < 0) {
            throw std::runtime_error("JSON integer is out of range");
        }
        return static_cast<uint64_t>(number);
    }
    // An integer counts as a real number too.
    double get_real() const {
        if (type() == int_type) {
            return is_uint64() ? static_cast<double>(get_uint64())
                               : static_cast<double>(get_int64());
        }
        return held<double>(real_type);
    }

    bool operator==(const Value_impl& other) const { return value_ == other.value_; }

private:
    template <class T>
    const T& held(Value_type wanted) const {
        if (const T* found = boost::get<T>(&value_)) {
            return *found;
        }
        throw std::runtime_error(std::string("JSON value is ") + value_type_name(type()) +
                                 ", not " + value_type_name(wanted));
    }

    boost::variant<Null, String_type, boost::recursive_wrapper<Object>,
                   boost::recursive_wrapper<Array>, bool, int64_t, uint64_t, double>
        value_;
};

template <class Config>
const Value_impl<Config> Value_impl<Config>::null;

// One member of an object that keeps its order.
template <class Config>
struct Pair_impl {
    typename Config::String_type name_;
    Value_impl<Config> value_;

    bool operator==(const Pair_impl&) const = default;
};

template <class String>
struct Config_map {
    using String_type = String;
    using Value_type = Value_impl<Config_map>;
    using Object_type = std::map<String, Value_type>;
    using Array_type = std::vector<Value_type>;

    static Value_type& add(Object_type& object, const String& name, Value_type value) {
        return object[name] = std::move(value);
    }
    static const String& name(const typename Object_type::value_type& member) {
        return member.first;
    }
    static const Value_type& value(const typename Object_type::value_type& member) {
        return member.second;
    }
};

template <class String>
struct Config_vector {
    using String_type = String;
    using Value_type = Value_impl<Config_vector>;
    using Pair_type = Pair_impl<Config_vector>;
    using Object_type = std::vector<Pair_type>;
    using Array_type = std::vector<Value_type>;

    // Replaces the member of that name, or appends one.
    static Value_type& add(Object_type& object, const String& name, Value_type value) {
        for (Pair_type& member : object) {
            if (member.name_ == name) {
                return member.value_ = std::move(value);
            }
        }
        object.push_back({name, std::move(value)});
        return object.back().value_;
    }
    static const String& name(const Pair_type& member) { return member.name_; }
    static const Value_type& value(const Pair_type& member) { return member.value_; }
};

using Value = Value_impl<Config_map<std::string>>;
using Object = Value::Object;
using Array = Value::Array;

using Ordered_value = Value_impl<Config_vector<std::string>>;
using Ordered_object = Ordered_value::Object;
using Ordered_array = Ordered_value::Array;

// The string member of that name. Throws std::runtime_error when there is none of that type.
const std::string& object_get_str_or_throw(const Object& object, const std::string& name);

}  // namespace json_spirit
