#include "httpd/http_reply.h"

#include <boost/beast/http/status.hpp>

namespace dorvo {

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

}  // namespace dorvo
