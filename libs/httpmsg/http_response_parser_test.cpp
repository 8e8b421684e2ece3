#include "httpmsg/http_response_parser.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace dorvo {
namespace {

const std::string ok = "HTTP/1.1 200 OK\r\n";
const std::string head = ok +
                         "Content-Type: text/plain\r\n"
                         "Set-Cookie: DORVOSESSION=00ff\r\n"
                         "X-Mine: 1\r\n"
                         "Content-Length: 5\r\n"
                         "\r\n";

// Feeds the text in two pieces, keeping what was not used, as a receiver does.
int parse_in_two(const std::string& text, size_t split, HTTP_Response& response,
                 std::string& rest) {
    HTTP_Response_Parser parser;
    int result = HTTP_Parser::NOT_BEGUN;
    std::string pending;
    for (const std::string& part : {text.substr(0, split), text.substr(split)}) {
        pending += part;
        size_t consumed = 0;
        result = parser.parse(pending.data(), pending.size(), consumed, response);
        pending.erase(0, consumed);
        if (result != HTTP_Parser::NOT_BEGUN && result != HTTP_Parser::IN_HEAD) {
            break;
        }
    }
    rest = pending;
    return result;
}

int parse(const std::string& text, HTTP_Response& response) {
    HTTP_Response_Parser parser;
    size_t consumed = 0;
    return parser.parse(text.data(), text.size(), consumed, response);
}

TEST(HttpResponseParser, ReadsTheSameHeadAtEverySplit) {
    const std::string text = head + "hello";
    for (size_t split = 0; split <= text.size(); ++split) {
        HTTP_Response response;
        std::string rest;
        ASSERT_EQ(parse_in_two(text, split, response, rest), HTTP_Parser::HEAD_DONE) << split;
        EXPECT_EQ(response.status(), 200);
        EXPECT_EQ(response.content_length(), 5u);
        EXPECT_TRUE(response.keep_alive());
        EXPECT_FALSE(response.chunked_transfer_encoding());
        EXPECT_STREQ(response.set_cookie(), "DORVOSESSION=00ff");
        EXPECT_STREQ(response.content_type(), "text/plain");
        EXPECT_STREQ(response.headers().get("x-mine"), "1");
        EXPECT_EQ(rest, std::string("hello").substr(0, rest.size())) << split;
    }
}

TEST(HttpResponseParser, KnowsTheFraming) {
    const struct {
        const char* text;  // behind "HTTP/1."
        bool body, chunked, keep;
        uint64_t length;
    } rows[] = {
        {"1 200 OK\r\nContent-Length: 7", true, false, true, 7},
        {"1 200 OK\r\nContent-Length: 0", false, false, true, 0},
        {"1 200 OK\r\nContent-Length: 1099511627776", true, false, true, 1099511627776},
        {"1 200 OK\r\nTransfer-Encoding: chunked", true, true, true, 0},
        {"1 200 OK\r\nConnection: close\r\nContent-Length: 7", true, false, false, 7},
        {"1 200 OK", false, false, false, 0},
        {"0 200 OK\r\nContent-Length: 7", true, false, false, 7},
        {"0 200 OK\r\nConnection: keep-alive\r\nContent-Length: 7", true, false, true, 7},
        {"1 204 No Content", false, false, true, 0},
        {"1 304 Not Modified\r\nContent-Length: 7", false, false, true, 7},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        HTTP_Response response;
        HTTP_Response_Parser parser;
        size_t consumed = 0;
        const std::string text = std::string("HTTP/1.") + row.text + "\r\n\r\n";
        ASSERT_EQ(parser.parse(text.data(), text.size(), consumed, response), 2);
        EXPECT_EQ(consumed, text.size());
        EXPECT_EQ(parser.has_body(), row.body);
        EXPECT_EQ(response.chunked_transfer_encoding(), row.chunked);
        EXPECT_EQ(response.keep_alive(), row.keep);
        EXPECT_EQ(response.content_length(), row.length);
    }
}

TEST(HttpResponseParser, RefusesWhatIsNoHttp) {
    const std::string all[] = {"garbage",
                               "HTTP/1.1 2000 OK",
                               "HTTP/1.1 099 Low",
                               "HTTP/3.1 200 OK",
                               "HTTP/1.1 200 OK\nContent-Length: 0\n",
                               ok + "Content-Length: -1",
                               ok + "Content-Length: 5x",
                               ok + "Content-Length: 5\r\nContent-Length: 6",
                               ok + "Content-Length: 5\r\nTransfer-Encoding: chunked",
                               ok + "Content-Length: 99999999999999999999999",
                               ok + "No colon",
                               ok + ": no name",
                               ok + "X: a\x01z"};
    for (const std::string& bad : all) {
        HTTP_Response response;
        EXPECT_EQ(parse(bad + "\r\n\r\n", response), HTTP_Parser::BAD_MESSAGE) << bad;
    }
}

// The limit counts the whole head, in whatever pieces it comes.
TEST(HttpResponseParser, RefusesAHeadBeyondTheLimit) {
    constexpr size_t limit = HTTP_Parser::HEAD_LIMIT;
    std::string text = "HTTP/1.1 204 OK\r\n";
    while (text.size() + 40 < limit) {
        text += "X-A: aaaaaaaa\r\n";
    }
    text += "X-B: ";
    text += std::string(limit - text.size() - 4, 'b') + "\r\n\r\n";
    ASSERT_EQ(text.size(), limit);
    for (const int wanted : {2, -1}) {
        for (const size_t split :
             {size_t{0}, size_t{1}, size_t{17}, text.size() / 2, text.size() - 1}) {
            HTTP_Response response;
            std::string rest;
            EXPECT_EQ(parse_in_two(text, split, response, rest), wanted) << split;
        }
        text.insert(text.size() - 4, "b");
    }
    HTTP_Response response;
    EXPECT_EQ(parse(ok + "X: " + std::string(9000, 'x'), response), -1);
    EXPECT_EQ(parse("HTTP/1.1 200 " + std::string(9000, 'x'), response), -1);
}

}  // namespace
}  // namespace dorvo
