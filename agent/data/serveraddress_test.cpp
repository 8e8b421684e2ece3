#include "data/serveraddress.h"

#include <gtest/gtest.h>

namespace dorvo::agent {
namespace {

TEST(ServerAddress, TakesHostAndPortAndNothingElse) {
    const auto address = parseServerAddress("backup-1.example.org:8080");
    ASSERT_TRUE(address);
    EXPECT_EQ(address->host, "backup-1.example.org");
    EXPECT_EQ(address->port, 8080);
    for (const char* text :
         {"", "host", "host:", ":80", "host:0", "host:65536", "host:80x", "host: 80", "host:-1",
          "host:+80", "http://host:80", "host:80/path", "ho st:80", "a\r\nb:80", "[::1]:80"}) {
        EXPECT_FALSE(parseServerAddress(text)) << text;
    }
}

}  // namespace
}  // namespace dorvo::agent
