#include "json_spirit/json_spirit.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

namespace json_spirit {
namespace {

Value parse(const std::string& text) {
    Value value;
    read_or_throw(text, value);
    return value;
}

TEST(JsonValue, GettersTakeTheirOwnTypeAndRangeOnly) {
    constexpr int64_t lowest = std::numeric_limits<int64_t>::min();
    constexpr uint64_t highest = std::numeric_limits<uint64_t>::max();
    for (const Value& value : {Value("8080"), Value(true), Value(1.0), parse("2147483648")}) {
        EXPECT_THROW(value.get_int(), std::runtime_error) << write(value);
    }
    EXPECT_THROW(Value(1).get_bool(), std::runtime_error);
    EXPECT_THROW(Value().get_array(), std::runtime_error);
    EXPECT_THROW(parse("9223372036854775808").get_int64(), std::runtime_error);
    EXPECT_THROW(Value(-1).get_uint64(), std::runtime_error);
    EXPECT_EQ(Value(7).get_real(), 7.0);
    EXPECT_EQ(parse("-9223372036854775808").get_int64(), lowest);
    EXPECT_EQ(parse("18446744073709551615").get_uint64(), highest);
    EXPECT_TRUE(parse("9223372036854775808").is_uint64());
    EXPECT_EQ(parse("18446744073709551616").type(), real_type);
    // One number is one value, whatever type it came from.
    EXPECT_TRUE(Value(5U) == Value(5) && Value(uint64_t{5}) == parse("5"));
}

TEST(JsonReader, SaysWhereAndWhy) {
    const std::tuple<const char*, std::string, unsigned, unsigned> rows[] = {
        {"cut off", "{\"a\":", 1, 6},
        {"on the second line", "{\n  \"a\" : x\n}", 2, 9},
        {"a second value", "{} {}", 1, 4},
        {"bytes after the value", "1\n\n x", 3, 2},
        {"a byte that is no UTF-8", "\"a\xFF\"", 1, 3},
        {"an overlong form", "\"\xC0\x80\"", 1, 2},
        {"a lone surrogate", "\"\\ud800\"", 1, 8},
        {"a comment", "/**/1", 1, 1},
        {"behind a byte-order mark", "\xEF\xBB\xBFx", 1, 1},
        {"a second byte-order mark", "\xEF\xBB\xBF\xEF\xBB\xBF{}", 1, 1},
        {"a number too large for a real", "[-1e309]", 1, 8},
        {"one of very many digits", std::string(400, '9'), 1, 401},
        {"a line end in a string", "\"a\nb\"", 1, 3},
    };
    for (const auto& [name, text, line, column] : rows) {
        SCOPED_TRACE(name);
        Value value("kept");
        try {
            read_or_throw(text, value);
            ADD_FAILURE() << "taken: " << write(value);
        } catch (const Error_position& error) {
            EXPECT_EQ(std::pair(error.line_, error.column_), std::pair(line, column));
            EXPECT_FALSE(error.reason_.empty());
        }
        EXPECT_EQ(value, Value("kept"));
    }
}

TEST(JsonReader, TakesWholeObjectsOnly) {
    const std::string whole = R"({"a" : [1, -2.5e3, "\u00e9"], "b" : {"c" : null}})";
    parse(whole);
    for (size_t length = 0; length < whole.size(); ++length) {
        EXPECT_THROW(parse(whole.substr(0, length)), Error_position) << length;
    }
}

TEST(JsonReader, BoundsTheDepth) {
    const auto nested = [](size_t depth) {
        return std::string(depth, '[') + std::string(depth, ']');
    };
    EXPECT_EQ(write(parse(nested(maxDepth))), nested(maxDepth));
    EXPECT_THROW(parse(nested(maxDepth + 1)), Error_position);
    EXPECT_THROW(parse(nested(1'000'000)), Error_position);
}

TEST(JsonWriter, FormatsOneMemberALineInTheOrderOfNames) {
    const Value value(Object{{"b", Array{1, "x", Object{}}},
                             {"a", Object{{"on", true}, {"none", Value()}}},
                             {"c", Array{}}});
    EXPECT_EQ(write_formatted(value), R"({
    "a" : {
        "none" : null,
        "on" : true
    },
    "b" : [
        1,
        "x",
        {
        }
    ],
    "c" : [
    ]
})");
    EXPECT_EQ(write(value), R"({"a":{"none":null,"on":true},"b":[1,"x",{}],"c":[]})");
    EXPECT_EQ(write(parse(R"({"a":1,"b":2,"a":3})")), R"({"a":3,"b":2})") << "the later of two";
}

TEST(JsonWriter, EscapesControlCharactersOnly) {
    EXPECT_EQ(write(Value("a\"\\/\b\f\n\r\t\x01\x1f\x7f")),
              "\"a\\\"\\\\/\\b\\f\\n\\r\\t\\u0001\\u001f\x7f\"");
    EXPECT_EQ(write(Value(std::string("\0", 1))), "\"\\u0000\"");
    const std::string text = "\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80";
    EXPECT_EQ(write(Value(text)), '"' + text + '"');
}

// A store that holds such bytes must stay readable.
TEST(JsonWriter, ReplacesBytesThatAreNoUtf8) {
    for (const char* bytes : {"\x80", "\xC0\x80", "\xC3", "\xE0\x80\x80", "\xED\xA0\x80",
                              "\xF0\x80\x80\x80", "\xE2\x82", "\xF4\x90\x80\x80", "\xFF"}) {
        const std::string text = std::string("a") + bytes + "b";
        const std::string read = parse(write(Value(text))).get_str();
        EXPECT_EQ(read.substr(0, 4), "a\xEF\xBF\xBD") << testing::PrintToString(text);
        EXPECT_EQ(read.back(), 'b');
    }
}

TEST(JsonWriter, RealsComeBackAsTheyWere) {
    for (const double number : {0.1, 1.0, -2.5e300, 5e-324, 123456789012345680.0}) {
        EXPECT_EQ(parse(write(Value(number))), Value(number)) << number;
    }
    std::mt19937_64 random(20261123);
    for (int i = 0; i < 10'000; ++i) {
        const auto number = std::bit_cast<double>(random());
        if (std::isfinite(number)) {
            const std::string text = write(Value(number));
            ASSERT_EQ(write(parse(text)), text);
        }
    }
    EXPECT_EQ(parse("[1e-400,-1e-400,0.5E+1]"), parse("[0.0,-0.0,5.0]"));
    EXPECT_EQ(write(Value(std::numeric_limits<double>::infinity())), "null");
    EXPECT_EQ(write(Value(std::nan(""))), "null");
}

TEST(JsonOrdered, KeepsTheOrderOfMembers) {
    Ordered_value value;
    read_or_throw(R"({"z":1,"a":2,"m":{"y":1,"x":2}})", value);
    EXPECT_EQ(write(value), R"({"z":1,"a":2,"m":{"y":1,"x":2}})");
    Config_vector<std::string>::add(value.get_obj(), "a", 7);
    Config_vector<std::string>::add(value.get_obj(), "b", 8);
    EXPECT_EQ(write(value), R"({"z":1,"a":7,"m":{"y":1,"x":2},"b":8})");
}

}  // namespace
}  // namespace json_spirit
