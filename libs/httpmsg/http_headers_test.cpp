#include "httpmsg/http_headers.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "httpmsg/http_request.h"
#include "httpmsg/http_response.h"

namespace dorvo {
namespace {

TEST(HttpNames, AreKnownWithoutRegardToCaseAndWithinTheirBounds) {
    for (int type = 0; type < HTTP_HEAD_TYPES; ++type) {
        EXPECT_EQ(http_head_type(http_head_string(type)), type);
    }
    EXPECT_EQ(http_head_type("cOOkie"), 14);
    EXPECT_EQ(http_head_type(nullptr), -1);
    EXPECT_STREQ(http_status_string(600), "Malformed Response");
    EXPECT_STREQ(http_status_string(299), "Unknown");
    HTTP_Headers headers;
    for (const int outside : {-1, 47, 1000}) {
        EXPECT_TRUE(http_head_string(outside) == nullptr && http_method_string(outside) == nullptr);
        EXPECT_EQ(headers.put(outside, "x"), -1);
        EXPECT_EQ(headers.get(outside), nullptr);
    }
}

TEST(HttpHeaders, KeepACopyPerSlotAndOtherNamesInTheMap) {
    HTTP_Headers headers;
    for (const char* value : {"a=1", "b=2"}) {
        EXPECT_TRUE(headers.put("COOKIE", value) == 0 && headers.put("X-Mine", value) == 0);
    }
    EXPECT_STREQ(headers.get(HTTP_HEAD_COOKIE), "b=2");
    EXPECT_STREQ(headers.get("X-MINE"), "b=2");
    EXPECT_EQ(headers.others().size(), 1u);
    headers.reset_i();
    EXPECT_EQ(headers.get(HTTP_HEAD_COOKIE), nullptr);
    EXPECT_STREQ(headers.get("x-mine"), "b=2");
}

// What gets into a header or a request line must not be able to end it.
TEST(HttpHeaders, RefuseWhatWouldAddALine) {
    using Texts = std::vector<std::string>;
    HTTP_Headers headers;
    headers.put(HTTP_HEAD_COOKIE, "good");
    for (const std::string& bad : Texts{"a\r\nHost: b", "a\n", "\r", {"a\0b", 3}}) {
        EXPECT_EQ(headers.put(HTTP_HEAD_COOKIE, bad), -1);
        EXPECT_EQ(headers.put(std::string("X-Mine"), bad), -1);
        EXPECT_STREQ(headers.get(14), "good");
    }
    for (const char* bad : {"", "X Mine", "X:Mine", "X\r\nY", "X\xc3\xa4"}) {
        EXPECT_EQ(headers.put(bad, "1"), -1) << bad;
    }
    EXPECT_TRUE(headers.others().empty());

    HTTP_Request request(HTTP_METHOD_POST, "/a");
    EXPECT_EQ(request.cookie("a\r\nX: y"), -1);
    for (const std::string& bad : Texts{"", "/a b", "/a\r\nX: y", {"/\0", 2}, "/\t"}) {
        EXPECT_EQ(request.uri(bad), -1);
        EXPECT_EQ(request.uri(), "/a");
    }
}

TEST(HttpBase, FramingAndFieldsAgree) {
    HTTP_Request request(HTTP_METHOD_POST, "/");
    request.content_length(5);
    EXPECT_STREQ(request.headers().get(HTTP_HEAD_CONTENT_LENGTH), "5");
    request.chunked_transfer_encoding(true);
    request.content_length(6);
    EXPECT_EQ(request.headers().get(HTTP_HEAD_CONTENT_LENGTH), nullptr);
    EXPECT_STREQ(request.headers().get(HTTP_HEAD_TRANSFER_ENCODING), "chunked");
    request.reset();
    EXPECT_FALSE(request.chunked_transfer_encoding());
    EXPECT_EQ(request.headers().get(HTTP_HEAD_TRANSFER_ENCODING), nullptr);
}

TEST(HttpRequest, TakesUriAndQueryApart) {
    const HTTP_Request request(HTTP_METHOD_GET, "/a%20b+c/%zz%4?n=1+2&m=%26%3D&&flag&n=3");
    EXPECT_EQ(request.decoded_uri(), "/a b+c/%zz%4");
    const HTTP_Query_String query = request.query_string();
    EXPECT_STREQ(query.get("n"), "1 2");
    EXPECT_STREQ(query.get("m"), "&=");
    EXPECT_STREQ(query.get("flag"), "");
    EXPECT_EQ(query.get("absent"), nullptr);
    EXPECT_EQ(query.pairs().size(), 4u);
    EXPECT_EQ(query.text(), "n=1%202&m=%26%3D&flag=&n=3");
    EXPECT_TRUE(HTTP_Request(HTTP_METHOD_GET, "/?").query_string().pairs().empty());
}

}  // namespace
}  // namespace dorvo
