// What two readers could take for two different requests: refused, and nothing after it is read.
#include <array>

#include "httpd/http_body.h"
#include "httpd/http_head.h"
#include "httpd/testing/echo_service.h"

namespace dorvo {

namespace {

using HttpStrictness = Http;

struct Row {
    const char* name;
    std::string request;
};

std::string coded(const std::string& coding, const std::string& body) {
    return head("/echo", "Transfer-Encoding: " + coding + "\r\n") + body;
}

std::string line(const std::string& requestLine) {
    return requestLine + "\r\nHost: x\r\nContent-Length: 0\r\n\r\n";
}

std::string hosts(const std::string& fields) {
    return "POST /echo HTTP/1.1\r\nContent-Length: 0\r\n" + fields + "\r\n";
}

const std::string chunks = "1\r\na\r\n0\r\n\r\n";

std::vector<Row> refusedHeads() {
    return {
        {"nonsense", "nonsense\r\n\r\n"},
        {"no version", line("POST /echo")},
        {"another version", line("POST /echo HTTP/9.9")},
        {"HTTP/2's preface", "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"},
        {"version in lower case", line("POST /echo http/1.1")},
        {"version with more digits", line("POST /echo HTTP/1.10")},
        {"two blanks", line("POST  /echo HTTP/1.1")},
        {"a blank behind the version", line("POST /echo HTTP/1.1 ")},
        {"a tab for a blank", line("POST\t/echo HTTP/1.1")},
        {"a blank before the method", line(" POST /echo HTTP/1.1")},
        {"a method that is no token", line("PO(ST /echo HTTP/1.1")},
        {"two empty lines before", "\r\n\r\n" + line("POST /echo HTTP/1.1")},
        {"a byte beyond ASCII in the target", line("POST /ech\xc3\xb6 HTTP/1.1")},
        {"NUL in the target", line(std::string("POST /ech\0 HTTP/1.1", 19))},
        {"a fragment", line("POST /echo#x HTTP/1.1")},
        {"no path", line("POST echo HTTP/1.1")},
        {"an authority", line("CONNECT x:80 HTTP/1.1")},
        {"a star for a path", line("POST * HTTP/1.1")},
        {"an encoded slash", line("POST /a%2Fecho HTTP/1.1")},
        {"an encoded NUL", line("POST /echo%00 HTTP/1.1")},
        {"an encoded line end", line("POST /echo%0d%0a HTTP/1.1")},
        {"another host in the target", line("POST http://y/echo HTTP/1.1")},
        {"a user in the target", line("POST http://u@x/echo HTTP/1.1")},
        {"another scheme", line("POST ftp://x/echo HTTP/1.1")},
        {"no Host", hosts("")},
        {"two Hosts", hosts("Host: x\r\nHost: x\r\n")},
        {"an empty Host", hosts("Host: \r\n")},
        {"a Host of brackets alone", hosts("Host: []\r\n")},
        {"a list of Hosts", hosts("Host: x, y\r\n")},
        {"a path in the Host", hosts("Host: x/y\r\n")},
        {"a port that is none", hosts("Host: x:8a\r\n")},
        {"a Host without its bracket", hosts("Host: [::1\r\n")},
        {"LF alone", "POST /echo HTTP/1.1\nHost: x\nContent-Length: 0\n\n"},
        {"LF alone once", hosts("Host: x\r\nA: b\n")},
        {"LF alone at the end", "POST /echo HTTP/1.1\r\nHost: x\r\n\n"},
        {"CR alone in a value", hosts("Host: x\r\nA: b\rContent-Length: 9\r\n")},
        {"CR alone at a line's end", hosts("Host: x\r\nA: b\r\r\n")},
        {"NUL in a value", hosts(std::string("Host: x\r\nA: b\0c\r\n", 17))},
        {"a folded field", hosts("Host: x\r\nA: b\r\n c\r\n")},
        {"a folded length", head("/echo", "Content-Length:\r\n 5\r\n")},
        {"a blank before the first field", "POST /echo HTTP/1.1\r\n Host: x\r\n\r\n"},
        {"a blank before the colon", head("/echo", "Content-Length : 5\r\n")},
        {"a tab before the colon", head("/echo", "Transfer-Encoding\t: chunked\r\n")},
        {"no colon", hosts("Host: x\r\nA\r\n")},
        {"no name", hosts("Host: x\r\n: b\r\n")},
        {"a control in a name", hosts("Host: x\r\nA\x01: b\r\n")},
        {"two lengths", head("/echo", "Content-Length: 5\r\nContent-Length: 6\r\n")},
        {"the same length twice", head("/echo", "Content-Length: 5\r\ncontent-length: 5\r\n")},
        {"a list of lengths", head("/echo", "Content-Length: 5, 5\r\n")},
        {"a length with plus", head("/echo", "Content-Length: +5\r\n")},
        {"a length below 0", head("/echo", "Content-Length: -5\r\n")},
        {"a length in hexadecimal", head("/echo", "Content-Length: 0x5\r\n")},
        {"a length with a blank", head("/echo", "Content-Length: 1 5\r\n")},
        {"an empty length", head("/echo", "Content-Length: \r\n")},
        {"a length and a coding",
         head("/echo", "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n") + chunks},
        {"a coding and a length",
         head("/echo", "Transfer-Encoding: chunked\r\nContent-Length: 5\r\n") + chunks},
        {"xchunked", coded("xchunked", chunks)},
        {"chunked twice", coded("chunked, chunked", chunks)},
        {"chunked in two fields", coded("chunked\r\nTransfer-Encoding: chunked", chunks)},
        {"gzip, then chunked", coded("gzip, chunked", chunks)},
        {"chunked, then identity", coded("chunked, identity", chunks)},
        {"chunked with a parameter", coded("chunked;q=1", chunks)},
        {"quoted", coded("\"chunked\"", chunks)},
        {"identity", coded("identity", chunks)},
        {"an empty coding", coded("", chunks)},
        {"a vertical tab before chunked", coded("\vchunked", chunks)},
        {"a coding in HTTP/1.0",
         "POST /echo HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n" + chunks},
        {"two tokens", head("/echo", "Authorization: a\r\nAuthorization: b\r\n")},
        {"two cookies", head("/echo", "Cookie: good\r\nCookie: bad\r\n")},
    };
}

std::vector<Row> refusedBodies() {
    return {
        {"no size", coded("chunked", "\r\na\r\n0\r\n\r\n")},
        {"a size that is none", coded("chunked", "zz\r\n")},
        {"a size below 0", coded("chunked", "-1\r\na\r\n0\r\n\r\n")},
        {"a size with 0x", coded("chunked", "0x1\r\na\r\n0\r\n\r\n")},
        {"a size that overflows", coded("chunked", "10000000000000001\r\na\r\n0\r\n\r\n")},
        {"a size of many digits", coded("chunked", std::string(16, '0') + "1\r\na\r\n0\r\n\r\n")},
        {"a blank before a size", coded("chunked", " 1\r\na\r\n0\r\n\r\n")},
        {"a blank behind a size", coded("chunked", "1 \r\na\r\n0\r\n\r\n")},
        {"LF alone behind a size", coded("chunked", "1\na\r\n0\r\n\r\n")},
        {"CR alone behind a size", coded("chunked", "1\ra\r\n0\r\n\r\n")},
        {"LF alone in an extension", coded("chunked", "1;a\nb\r\na\r\n0\r\n\r\n")},
        {"an extension without an end", coded("chunked", "1;" + std::string(9000, 'x'))},
        {"a chunk longer than its size", coded("chunked", "1\r\nab\r\n0\r\n\r\n")},
        {"LF alone behind a chunk", coded("chunked", "1\r\na\n0\r\n\r\n")},
        {"a trailer without an end", coded("chunked", "0\r\nX: " + std::string(9000, 'x'))},
        {"a folded trailer", coded("chunked", "0\r\nA: b\r\n c\r\n\r\n")},
        {"a trailer that is no field", coded("chunked", "0\r\nPOST /echo\r\n\r\n")},
        {"LF alone in a trailer", coded("chunked", "0\r\nA: b\n\r\n")},
        {"LF alone at the end", coded("chunked", "0\r\n\n")},
    };
}

TEST_F(HttpStrictness, WhatCouldBeTwoRequestsIsRefusedAndEndsTheConnection) {
    for (const auto& rows : {refusedHeads(), refusedBodies()}) {
        for (const Row& row : rows) {
            Client client(server->port());
            client.send(row.request + sized("/echo", "smuggled"));
            const Answer answer = client.receive();
            EXPECT_EQ(answer.status, 400) << row.name;
            EXPECT_EQ(answer.header("Connection"), "close") << row.name;
            EXPECT_EQ(client.receive().status, 0) << row.name;
        }
    }
    EXPECT_EQ(ask("on").body, "on");
}

TEST_F(HttpStrictness, WhatIsUnusualAndClearIsServed) {
    const Row rows[] = {
        {"the whole address", "POST http://X:80/echo HTTP/1.1\r\nHost: x:80\r\n"},
        {"an IPv6 Host", "POST /echo?a/b=%2F HTTP/1.1\r\nHost: [::1]:80\r\n"},
        {"an encoded letter", "POST /%65cho HTTP/1.1\r\nHOST:x\t \r\nA:\r\nA: \xff\r\n"},
        {"an empty line before", "\r\nPOST /echo HTTP/1.1\r\nHost: x\r\n"},
        {"HTTP/1.0 without a Host", "POST /echo HTTP/1.0\r\nConnection: x, Keep-Alive\r\n"},
    };
    const std::string bodies[] = {
        "Content-Length: 0004\r\n\r\nbody",
        "Transfer-Encoding: Chunked\r\n\r\n1;a=\"b\"\r\nb\r\n0003\r\nody\r\n00\r\nA: b\r\n\r\n",
    };
    Client client(server->port());
    for (const Row& row : rows) {
        for (const std::string& body : bodies) {
            if (row.request.find("HTTP/1.0") == std::string::npos || body.starts_with("C")) {
                client.send(row.request + body);
                EXPECT_EQ(client.receive().body, "body") << row.name << body;
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
