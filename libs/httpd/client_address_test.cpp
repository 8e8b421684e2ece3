#include "httpd/client_address.h"

#include <gtest/gtest.h>

namespace dorvo {

namespace {

TEST(ForwardedClient, IsWhomTheLastTrustedHopHasItFrom) {
    const std::vector<std::string> trusted = {"127.0.0.1", "10.0.0.2", "2001:db8::2"};
    const char* const own = "127.0.0.1";
    struct Row {
        const char* name;
        const char* peer;
        const char* forwarded;
        const char* forwardedFor;
        const char* client;
    };
    const Row rows[] = {
        {"a stranger says what he likes", "192.0.2.9", "for=192.0.2.1", "192.0.2.1", "192.0.2.9"},
        {"nothing is said", own, "", "", own},
        {"one hop", own, "", "192.0.2.1", "192.0.2.1"},
        {"one hop, the other field", own, "for=192.0.2.1;proto=https", "", "192.0.2.1"},
        {"what the client made up stands before", own, "", "6.6.6.6, 192.0.2.1", "192.0.2.1"},
        {"made up, the other field", own, "for=6.6.6.6, for=192.0.2.1", "", "192.0.2.1"},
        {"two trusted hops", own, "", "6.6.6.6, 192.0.2.1,10.0.0.2", "192.0.2.1"},
        {"trusted hops only", own, "", "10.0.0.2", "10.0.0.2"},
        {"with a port", own, "", "192.0.2.1:4711", "192.0.2.1"},
        {"a long address", own, "", "2001:DB8:0::1", "2001:db8::1"},
        {"a long address with a port", own, "For=\"[2001:db8::1]:4711\";by=x", "", "2001:db8::1"},
        {"a long address is trusted", "2001:db8::2", "", "[192.0.2.1]", "192.0.2.1"},
        {"a mapped address", own, "", "::ffff:192.0.2.1", "192.0.2.1"},
        {"both fields agree", own, "for=192.0.2.1", "6.6.6.6,192.0.2.1", "192.0.2.1"},
        {"one field is passed on unread", own, "for=6.6.6.6", "192.0.2.1", own},
        {"a name", own, "for=_hidden", "", own},
        {"unknown behind a hop", own, "", "unknown, 10.0.0.2", "10.0.0.2"},
        {"no for", own, "proto=http", "", own},
        {"separators in quotes", own, "for=\"6.6.6.6, for=6.6.6.6\", for=192.0.2.1", "",
         "192.0.2.1"},
        {"an open quote", own, "for=\"192.0.2.1, for=6.6.6.6", "", own},
        {"an empty element", own, "", "192.0.2.1,", own},
        {"an open bracket", own, "", "[::1", own},
        {"an own quote that swallows what follows", own, "for=6.6.6.6;by=\", for=192.0.2.1", "",
         own},
        {"an own quote that the next hand's closes", own,
         "for=6.6.6.6;by=\", for=\"[2001:db8::1]:1\"", "", own},
        {"a quote within a value", own, "for=6.6.6.6;by=a\"b\", for=192.0.2.1", "", own},
        {"no quotes in the other field", own, "", "6.6.6.6:\", 192.0.2.1", "192.0.2.1"},
        {"something behind the bracket", own, "", "[6.6.6.6]x", own},
        {"a port that is none", own, "", "6.6.6.6:a b", own},
        {"garbage", own, ";;==,,\"\\", ",:,[,]", own},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(forwardedClient(row.peer, trusted, row.forwarded, row.forwardedFor), row.client)
            << row.name;
    }
}

}  // namespace

}  // namespace dorvo
