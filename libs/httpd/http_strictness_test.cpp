// What two readers could take for two different requests: refused, and nothing after it is read.
#include <sstream>

#include "httpd/http_body.h"
#include "httpd/http_head.h"
#include "httpd/testing/echo_service.h"

namespace dorvo {

namespace {

using namespace std::string_literals;

using HttpStrictness = Http;

const std::string chunks = "1\r\na\r\n0\r\n\r\n";

std::vector<std::string> split(const std::string& list) {
    std::vector<std::string> all;
    std::istringstream stream(list);
    for (std::string one; std::getline(stream, one, '|');) {
        all.push_back(one);
    }
    return all;
}

std::vector<std::string> refused() {
    std::vector<std::string> all = {
        "nonsense\r\n\r\n",
        "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n",
        "\r\n\r\nPOST /echo HTTP/1.1\r\nHost: x\r\nContent-Length: 0\r\n\r\n",
        "POST /echo HTTP/1.1\nHost: x\nContent-Length: 0\n\n",
        "POST /echo HTTP/1.1\r\nHost: x\r\n\n",
        "POST /echo HTTP/1.1\r\n Host: x\r\n\r\n",
        "POST /echo HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n" + chunks,
    };
    for (const std::string& line : split(
             "POST /echo|POST /echo HTTP/9.9|POST /echo http/1.1|POST /echo HTTP/1.10|"
             "POST  /echo HTTP/1.1|POST /echo HTTP/1.1 |POST\t/echo HTTP/1.1| POST /echo HTTP/1.1|"
             "PO(ST /echo HTTP/1.1|POST /ech\xc3\xb6 HTTP/1.1|POST /ech\0 HTTP/1.1|"
             "POST /echo#x HTTP/1.1|POST echo HTTP/1.1|CONNECT x:80 HTTP/1.1|POST * HTTP/1.1|"
             "POST /a%2Fecho HTTP/1.1|POST /echo%00 HTTP/1.1|POST /% HTTP/1.1|POST /%2 HTTP/1.1|"
             "POST /%zz HTTP/1.1|POST /%+1 HTTP/1.1|POST /%-1 HTTP/1.1|POST /a%5cb HTTP/1.1|POST "
             "/echo%0d%0a HTTP/1.1|"
             "POST http://y/echo HTTP/1.1|POST http://u@x/echo HTTP/1.1|"
             "POST ftp://x/echo HTTP/1.1"s)) {
        all.push_back(line + "\r\nHost: x\r\nContent-Length: 0\r\n\r\n");
    }
    for (const char* host :
         {"", "Host: x\r\nHost: x\r\n", "Host: \r\n", "Host: []\r\n", "Host: x, y\r\n",
          "Host: x/y\r\n", "Host: x:8a\r\n", "Host: [::1\r\n"}) {
        all.push_back("POST /echo HTTP/1.1\r\nContent-Length: 0\r\n" + std::string(host) + "\r\n");
    }
    for (const std::string& field :
         split("A: b\rContent-Length: 9|A: b\r|A: b\0c|A: b\r\n c|A|: b|A\x01: b|"
               "Content-Length:\r\n 5|Content-Length : 5|Transfer-Encoding\t: chunked|"
               "Content-Length: 5\r\nContent-Length: 6|Content-Length: 5\r\ncontent-length: 5|"
               "Content-Length: 5, 5|Content-Length: +5|Content-Length: -5|Content-Length: 0x5|"
               "Content-Length: 1 5|Content-Length: |A: b\nC: d|"
               "Content-Length: 5\r\nTransfer-Encoding: chunked|"
               "Transfer-Encoding: chunked\r\nContent-Length: 5|"
               "Authorization: a\r\nAuthorization: b|Cookie: good\r\nCookie: bad"s)) {
        all.push_back(head("/echo", field + "\r\n"));
    }
    for (const char* coding : {"xchunked", "chunked, chunked", "gzip, chunked", "chunked, identity",
                               "chunked\r\nTransfer-Encoding: chunked", "chunked;q=1",
                               "\"chunked\"", "identity", "", "\vchunked"}) {
        all.push_back(head("/echo", "Transfer-Encoding: " + std::string(coding) + "\r\n") + chunks);
    }
    const std::string end = "\r\na\r\n0\r\n\r\n";
    for (const std::string& body :
         {end, "zz\r\n"s, "-1" + end, "0x1" + end, "10000000000000001" + end,
          std::string(16, '0') + "1" + end, " 1" + end, "1 " + end, "1\na\r\n0\r\n\r\n"s,
          "1\ra\r\n0\r\n\r\n"s, "1;a\nb" + end, "1;" + std::string(9000, 'x'),
          "1\r\nab\r\n0\r\n\r\n"s, "1\r\na\n0\r\n\r\n"s, "0\r\nX: " + std::string(9000, 'x'),
          "0\r\nA: b\r\n c\r\n\r\n"s, "0\r\nPOST /echo\r\n\r\n"s, "0\r\nA: b\n\r\n"s, "0\r\n\n"s}) {
        all.push_back(head("/echo", "Transfer-Encoding: chunked\r\n") + body);
    }
    return all;
}

TEST_F(HttpStrictness, WhatCouldBeTwoRequestsIsRefusedAndEndsTheConnection) {
    for (const std::string& request : refused()) {
        Client client(server->port());
        client.send(request + sized("/echo", "smuggled"));
        const Answer answer = client.receive();
        EXPECT_EQ(answer.status, 400) << request.substr(0, 200);
        EXPECT_EQ(answer.header("Connection"), "close") << request.substr(0, 200);
        EXPECT_EQ(client.receive().status, 0) << request.substr(0, 200);
    }
    EXPECT_EQ(ask("on").body, "on");
}

TEST_F(HttpStrictness, WhatIsUnusualAndClearIsServed) {
    const std::string requests[] = {
        "POST http://X:80/echo HTTP/1.1\r\nHost: x:80\r\n",
        "POST /echo?a/b=%2F HTTP/1.1\r\nHost: [::1]:80\r\n",
        "POST /%65cho HTTP/1.1\r\nHOST:x\t \r\nA:\r\nA: \xff\r\n",
        "\r\nPOST /echo HTTP/1.1\r\nHost: x\r\n",
        "POST /echo HTTP/1.0\r\nConnection: x, Keep-Alive\r\n",
    };
    const std::string bodies[] = {
        "Content-Length: 0004\r\n\r\nbody",
        "Transfer-Encoding: Chunked\r\n\r\n1;a=\"b\"\r\nb\r\n0003\r\nody\r\n00\r\nA: b\r\n\r\n",
    };
    Client client(server->port());
    for (const std::string& request : requests) {
        for (const std::string& body : bodies) {
            if (request.find("HTTP/1.0") == std::string::npos || body.starts_with("C")) {
                client.send(request + body);
                EXPECT_EQ(client.receive().body, "body") << request << body;
            }
        }
    }
    client.send("POST /echo HTTP/1.1\r\nHost: x\r\nConnection: a, close\r\n\r\n" +
                sized("/echo", "more"));
    EXPECT_EQ(client.receive().header("Connection"), "close");
    EXPECT_EQ(client.receive().status, 0);
}

TEST_F(HttpStrictness, AnAnswerToHeadHasNoBody) {
    Client client(server->port());
    client.send("HEAD /echo HTTP/1.1\r\nHost: x\r\n\r\nOPTIONS * HTTP/1.1\r\nHost: x\r\n\r\n");
    EXPECT_EQ(client.receiveHead().status, 405);
    const Answer answer = client.receive();
    EXPECT_EQ(answer.head.substr(0, 12), "HTTP/1.1 405");
    EXPECT_EQ(answer.body, "only POST");
}

TEST(HttpHead, IsWholeWithItsEmptyLine) {
    const std::string text = "\r\n" + head("/echo", "A: b\r\n");
    for (size_t size = 0; size < text.size(); ++size) {
        EXPECT_EQ(headLength(text.substr(0, size)), 0U) << size;
    }
    EXPECT_EQ(headLength(text), text.size());
    EXPECT_EQ(headLength(text + "more"), text.size());
}

TEST(HttpBody, ComesOutTheSameHoweverItIsCut) {
    const std::string text = "a;x\r\n0123456789\r\n1\r\n\r\r\n0\r\nA: b\r\n\r\nnext";
    for (size_t cut = 0; cut <= text.size(); ++cut) {
        HttpBody body = HttpBody::chunked();
        std::string content;
        std::string left;
        for (std::string_view part :
             {std::string_view(text).substr(0, cut), std::string_view(text).substr(cut)}) {
            while (!part.empty() && !body.done() && !body.malformed()) {
                content += body.take(part);
            }
            left += part;
        }
        EXPECT_TRUE(body.done()) << cut;
        EXPECT_EQ(content, "0123456789\r") << cut;
        EXPECT_EQ(left, "next") << cut;
    }
}

}  // namespace

}  // namespace dorvo
