// The heads of requests and answers. A request's is read strictly: what two readers could take for
// two different requests is refused. As RFC 9112 has it, and tighter where it leaves a choice: no
// folded lines, no CR or LF by itself, one Host, and one length or `chunked`, never both.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "httpd/http_service.h"

namespace dorvo {

struct HttpField {
    std::string_view name;
    std::string_view value;  // without the blanks around it
};

// Views into the text that it was read from.
struct HttpHead {
    std::string_view method;
    std::string_view target;  // as it came
    std::string path;         // of the target: percent-decoded, without its query
    std::string_view host;
    unsigned minor = 1;  // of HTTP/1.x
    std::vector<HttpField> fields;
    bool keepAlive = true;  // as far as the client is concerned
    bool expectsContinue = false;
    bool chunked = false;
    uint64_t length = 0;  // of the body where it isn't chunked; the largest number for larger ones

    // The first of that name, in whatever case; null when there is none.
    [[nodiscard]] const HttpField* find(std::string_view name) const;
    // Its value, empty when there is none.
    [[nodiscard]] std::string_view field(std::string_view name) const;
};

// How many bytes at the front are a head, with its empty line; 0 when it isn't all there yet. A
// line that ends otherwise than with CR LF ends it too: parseHead refuses it.
size_t headLength(std::string_view bytes);

// Parses a whole head. Gives why it is refused, in plain ASCII, or null when it is taken.
const char* parseHead(std::string_view text, HttpHead& head);

// A request's target as the path that endpoints are known by: percent-decoded and without its
// query; nothing when an escape is malformed, or stands for a slash or a control character: who
// stands before the server may have taken the path for another.
std::optional<std::string> decodedPath(std::string_view target);

// The head of an answer. With its empty line; for a client that speaks HTTP/1.`minor`.
std::string replyHead(const WebReply& reply, unsigned minor, bool keepAlive);

}  // namespace dorvo
