#include "base/md5.h"

#include <gtest/gtest.h>

#include <string_view>

namespace dorvo {
namespace {

// With the lengths around which the padding takes a block of its own.
TEST(Md5, IsTheSameAtEverySplit) {
    const std::pair<std::string_view, const char*> rows[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa",
         "3b0c8ac703f828b04c6c197006d17218"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& [text, digest] : rows) {
        const auto bytes = std::as_bytes(std::span(text));
        for (size_t split = 0; split <= bytes.size(); ++split) {
            Md5 md5;
            md5.update(bytes.first(split));
            md5.update(bytes.subspan(split));
            EXPECT_EQ(md5.final(), digest) << text << " split at " << split;
        }
    }
}

}  // namespace
}  // namespace dorvo
