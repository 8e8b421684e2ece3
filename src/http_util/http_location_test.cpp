#include "http_util/http_location.h"

#include <gtest/gtest.h>

namespace dorvo {
namespace {

TEST(HttpLocation, SplitsIntoHostAndPath) {
    const struct {
        const char* location;
        const char* host;
        const char* path;
        bool whole;
    } rows[] = {
        {"http://other/new", "other", "/new", true},
        {"HTTPS://other:8443/a/b?c=d#e", "other", "/a/b?c=d", true},
        {"http://user@other/x", "other", "/x", true},
        {"http://[::1]:80/x", "[::1]", "/x", true},
        {"http://other?q", "other", "/?q", true},
        {"http://other", "other", "", false},
        {"http://:80/x", "", "/x", false},
        {"/x", "", "", false},
        {"ftp://other/x", "", "", false},
        {"", "", "", false},
    };
    for (const auto& row : rows) {
        std::string host = "before";
        std::string path = "before";
        EXPECT_EQ(split_location(row.location, host, path), row.whole) << row.location;
        EXPECT_EQ(host, row.host) << row.location;
        EXPECT_EQ(path, row.path) << row.location;
    }
}

}  // namespace
}  // namespace dorvo
