#include "base/md5.h"

#include <gtest/gtest.h>

#include <string_view>

namespace dorvo {
namespace {

struct Row {
    const char* name;
    std::string_view text;
    const char* digest;
};

constexpr Row rows[] = {
    {"Nothing", "", "d41d8cd98f00b204e9800998ecf8427e"},
    {"Abc", "abc", "900150983cd24fb0d6963f7d28e17f72"},
    {"Alphabet", "abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
    {"TwoBlocks",
     "12345678901234567890123456789012345678901234567890123456789012345678901234567890",
     "57edf4a22be3c955ac49da2e2107b67a"},
};

class Md5Test : public testing::TestWithParam<Row> {};

TEST_P(Md5Test, IsTheSameAtEverySplit) {
    const auto bytes = std::as_bytes(std::span(GetParam().text));
    for (size_t split = 0; split <= bytes.size(); ++split) {
        Md5 md5;
        md5.update(bytes.first(split));
        md5.update(bytes.subspan(split));
        EXPECT_EQ(md5.final(), GetParam().digest) << "split at " << split;
    }
}

INSTANTIATE_TEST_SUITE_P(Rfc1321, Md5Test, testing::ValuesIn(rows),
                         [](const auto& row) { return row.param.name; });

// The length field starts a block of its own when fewer than eight bytes are left.
TEST(Md5Padding, CrossesTheBlockBoundary) {
    const std::string text(56, 'a');
    EXPECT_EQ(Md5::of(std::as_bytes(std::span(text))), "3b0c8ac703f828b04c6c197006d17218");
}

}  // namespace
}  // namespace dorvo
