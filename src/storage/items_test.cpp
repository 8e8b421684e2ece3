#include "storage/items.h"

#include <gtest/gtest.h>

namespace dorvo {
namespace {

TEST(Items, ReadsAFailedOneAsFarAsItIsOne) {
    const std::tuple<const char*, const char*, uint32_t, const char*> rows[] = {
        {R"({"path":"C:\\a","code":4294967295,"reason":"why","more":1})", "C:\\a", 0xffffffff,
         "why"},
        {R"({"path":"C:\\a"})", "C:\\a", 0, ""},
        {R"({"path":1,"code":"5","reason":[]})", "", 0, ""},
        {R"({"path":"C:\\a","code":-1})", "C:\\a", 0, ""},
        {R"({"path":"C:\\a","code":4294967296})", "C:\\a", 0, ""},
        {R"({"path":"C:\\a","code":18446744073709551615})", "C:\\a", 0, ""},
        {"[]", "", 0, ""},
    };
    for (const auto& [text, path, code, reason] : rows) {
        SCOPED_TRACE(text);
        json_spirit::Value value;
        json_spirit::read_or_throw(text, value);
        const FailedItem item = readFailedItem(value);
        EXPECT_EQ(item.path, path);
        EXPECT_EQ(item.code, code);
        EXPECT_EQ(item.reason, reason);
    }
}

TEST(Items, PathsLoseOneTrailingBackslash) {
    EXPECT_EQ(withoutTrailingBackslash("C:\\"), "C:");
    EXPECT_EQ(withoutTrailingBackslash("C:\\dir"), "C:\\dir");
    EXPECT_EQ(withoutTrailingBackslash(""), "");
}

}  // namespace
}  // namespace dorvo
