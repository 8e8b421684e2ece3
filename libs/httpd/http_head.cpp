#include "httpd/http_head.h"

#include <algorithm>
#include <boost/beast/http/status.hpp>
#include <charconv>
#include <limits>

#include "httpd/http_text.h"

namespace dorvo {

namespace {

constexpr std::string_view lineEnd = "\r\n";

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Whether one of the field's comma-separated words, in all its lines, is this one.
bool hasWord(const HttpHead& head, std::string_view name, std::string_view word) {
    return std::any_of(head.fields.begin(), head.fields.end(), [&](const HttpField& field) {
        std::string_view rest = field.value;
        bool found = false;
        while (equalNoCase(field.name, name) && !rest.empty() && !found) {
            const size_t comma = std::min(rest.find(','), rest.size());
            found = equalNoCase(trimmed(rest.substr(0, comma)), word);
            rest.remove_prefix(std::min(comma + 1, rest.size()));
        }
        return found;
    });
}

// "name", "name:80", "[::1]:80".
bool isHost(std::string_view host) {
    size_t end = 0;
    if (host.starts_with('[')) {
        end = host.find(']');
        if (end == std::string_view::npos || end == 1 ||
            host.substr(1, end - 1).find_first_not_of("0123456789abcdefABCDEF:.") !=
                std::string_view::npos) {
            return false;
        }
        ++end;
    } else {
        end = std::min(host.find(':'), host.size());
        const bool plain = std::all_of(host.begin(), host.begin() + static_cast<ptrdiff_t>(end),
                                       [](char c) { return isTokenChar(c) && c != '`'; });
        if (end == 0 || !plain) {
            return false;
        }
    }
    const std::string_view port = host.substr(end);
    return port.empty() || (port.front() == ':' && port.size() <= 6 &&
                            std::all_of(port.begin() + 1, port.end(), isDigit));
}

const char* readRequestLine(std::string_view line, HttpHead& head) {
    constexpr const char* malformed = "the request line is malformed";
    const size_t first = line.find(' ');
    const size_t second = line.find(' ', first + 1);
    if (first == std::string_view::npos || second == std::string_view::npos) {
        return malformed;
    }
    head.method = line.substr(0, first);
    head.target = line.substr(first + 1, second - first - 1);
    const std::string_view version = line.substr(second + 1);
    const bool visible = std::all_of(head.target.begin(), head.target.end(),
                                     [](char c) { return c > ' ' && c < 0x7F && c != '#'; });
    if (!isToken(head.method) || head.target.empty() || !visible) {
        return malformed;
    }
    if (version != "HTTP/1.1" && version != "HTTP/1.0") {
        return "the version of HTTP is not served";
    }
    head.minor = version.back() == '1' ? 1 : 0;
    return nullptr;
}

const char* readField(std::string_view line, HttpHead& head) {
    if (isBlank(line.front())) {
        return "a header field is folded";
    }
    const size_t colon = line.find(':');
    // A blank before the colon is no part of a token.
    if (colon == std::string_view::npos || !isToken(line.substr(0, colon))) {
        return "a header field's name is malformed";
    }
    const HttpField field{line.substr(0, colon), trimmed(line.substr(colon + 1))};
    if (!std::all_of(field.value.begin(), field.value.end(), isFieldChar)) {
        return "a header field's value is malformed";
    }
    for (const std::string_view single : {"Host", "Content-Length", "Transfer-Encoding",
                                          "Content-Type", "Authorization", "Cookie", "Expect"}) {
        if (equalNoCase(field.name, single) && head.find(single) != nullptr) {
            return "a header field is there twice";
        }
    }
    head.fields.push_back(field);
    return nullptr;
}

const char* readLength(std::string_view digits, uint64_t& length) {
    if (digits.empty() || !std::all_of(digits.begin(), digits.end(), isDigit)) {
        return "the content length is malformed";
    }
    constexpr uint64_t most = std::numeric_limits<uint64_t>::max();
    for (const char c : digits) {
        const auto digit = static_cast<uint64_t>(c - '0');
        length = length > (most - digit) / 10 ? most : length * 10 + digit;
    }
    return nullptr;
}

// How long the body is, in the one way in which it may be said.
const char* readFraming(HttpHead& head) {
    const HttpField* coding = head.find("Transfer-Encoding");
    const HttpField* length = head.find("Content-Length");
    if (coding != nullptr) {
        if (length != nullptr) {
            return "there is a transfer coding and a content length";
        }
        if (head.minor == 0 || !equalNoCase(coding->value, "chunked")) {
            return "the transfer coding is not chunked";
        }
        head.chunked = true;
    }
    return length == nullptr ? nullptr : readLength(length->value, head.length);
}

// A path, or the whole address, as proxies are asked, which must name the host that Host names.
const char* readTarget(HttpHead& head) {
    const HttpField* host = head.find("Host");
    if (host == nullptr ? head.minor != 0 : !isHost(host->value)) {
        return host == nullptr ? "the Host is missing" : "the Host is malformed";
    }
    head.host = head.field("Host");
    std::string_view path = head.target;
    for (const std::string_view scheme : {"http://", "https://"}) {
        if (equalNoCase(path.substr(0, scheme.size()), scheme)) {
            path.remove_prefix(scheme.size());
            const size_t end = std::min(path.find_first_of("/?"), path.size());
            if (!equalNoCase(path.substr(0, end), head.host)) {
                return "the target and the Host contradict each other";
            }
            path.remove_prefix(end);
            break;
        }
    }
    const bool ofServer = head.method == "OPTIONS" && head.target == "*";
    auto decoded = decodedPath(path);
    if (!ofServer && (!path.starts_with('/') || !decoded)) {
        return "the path is malformed";
    }
    head.path = std::move(*decoded);
    return nullptr;
}

}  // namespace

const HttpField* HttpHead::find(std::string_view name) const {
    const auto found = std::find_if(fields.begin(), fields.end(), [name](const HttpField& field) {
        return equalNoCase(field.name, name);
    });
    return found == fields.end() ? nullptr : &*found;
}

std::string_view HttpHead::field(std::string_view name) const {
    const HttpField* found = find(name);
    return found == nullptr ? std::string_view() : found->value;
}

size_t headLength(std::string_view bytes) {
    // Some clients end the body before with a line end that belongs to nothing.
    size_t line = bytes.starts_with(lineEnd) ? lineEnd.size() : 0;
    for (size_t at = bytes.find('\n', line); at != std::string_view::npos;
         at = bytes.find('\n', line)) {
        const bool proper = at > line && bytes[at - 1] == '\r';
        if (!proper || at == line + 1) {
            return at + 1;
        }
        line = at + 1;
    }
    return 0;
}

const char* parseHead(std::string_view text, HttpHead& head) {
    if (text.starts_with(lineEnd)) {
        text.remove_prefix(lineEnd.size());
    }
    for (bool first = true;; first = false) {
        const size_t end = text.find(lineEnd);
        if (end == std::string_view::npos) {
            return "a line of the head does not end with CR LF";
        }
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(end + lineEnd.size());
        if (line.empty() && !first) {
            break;
        }
        if (const char* why = first ? readRequestLine(line, head) : readField(line, head)) {
            return why;
        }
    }
    if (const char* why = readFraming(head)) {
        return why;
    }
    head.keepAlive = !hasWord(head, "Connection", "close") &&
                     (head.minor != 0 || hasWord(head, "Connection", "keep-alive"));
    head.expectsContinue = head.minor != 0 && equalNoCase(head.field("Expect"), "100-continue");
    return readTarget(head);
}

std::optional<std::string> decodedPath(std::string_view target) {
    target = target.substr(0, target.find('?'));
    std::string path;
    path.reserve(target.size());
    for (size_t i = 0; i < target.size(); ++i) {
        if (target[i] != '%') {
            path += target[i];
            continue;
        }
        const std::string_view digits = target.substr(i + 1, 2);
        unsigned value = 0;
        const auto [end, error] =
            std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
        if (digits.size() != 2 || error != std::errc() || end != digits.data() + 2) {
            return std::nullopt;
        }
        if (value < 0x20 || value == 0x7F || value == '/' || value == '\\') {
            return std::nullopt;
        }
        path += static_cast<char>(value);
        i += 2;
    }
    return path;
}

std::string replyHead(const WebReply& reply, unsigned minor, bool keepAlive) {
    const auto reason = boost::beast::http::obsolete_reason(
        boost::beast::http::int_to_status(static_cast<unsigned>(reply.status)));
    std::string head = minor == 0 ? "HTTP/1.0 " : "HTTP/1.1 ";
    head += std::to_string(reply.status) + " ";
    head.append(reason.data(), reason.size());
    const auto field = [&head](std::string_view name, const std::string& value) {
        head.append("\r\n").append(name).append(": ").append(value);
    };
    field("Content-Type", reply.contentType);
    if (!reply.setCookie.empty()) {
        field("Set-Cookie", reply.setCookie);
    }
    if (!reply.allow.empty()) {
        field("Allow", reply.allow);
    }
    if (reply.retryAfter != 0) {
        field("Retry-After", std::to_string(reply.retryAfter));
    }
    if (!keepAlive) {
        field("Connection", "close");
    } else if (minor == 0) {
        field("Connection", "keep-alive");
    }
    field("Content-Length", std::to_string(reply.body.size()));
    return head += "\r\n\r\n";
}

const std::string* WebRequest::find(std::string_view name) const {
    const auto found = std::find_if(fields.begin(), fields.end(),
                                    [name](const auto& f) { return equalNoCase(f.first, name); });
    return found == fields.end() ? nullptr : &found->second;
}

}  // namespace dorvo
