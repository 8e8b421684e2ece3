#include "text/printable.h"

#include <gtest/gtest.h>

namespace dorvo::agent {
namespace {

TEST(Printable, KeepsTextAndMasksTheRest) {
    struct Row {
        std::string_view text, shown;
    };
    for (const Row& row : {Row{"", ""},
                           {"C:\\\xC3\xA4 ~\xE2\x82\xAC\xF0\x9F\x98\x80",
                            "C:\\\xC3\xA4 ~\xE2\x82\xAC\xF0\x9F\x98\x80"},
                           {"a\x1B[2Jb\r\n\tc\x7F", "a?[2Jb???c?"},
                           {{"a\0b", 3}, "a?b"},
                           {"\xC2\x80\xC2\x9B\xC2\xA0", "??\xC2\xA0"},
                           {"a\xFFz", "a\xEF\xBF\xBDz"}}) {
        EXPECT_EQ(printable(row.text), row.shown);
    }
}

}  // namespace
}  // namespace dorvo::agent
