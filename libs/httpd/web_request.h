// A request and its answer between the HTTP server and the service, free of HTTP's machinery.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace dorvo {

struct WebRequest {
    std::string method;  // "POST"
    std::string path;    // percent-decoded, without the query
    std::string host;    // this and the next three: the header fields, empty when not there
    std::string authorization;
    std::string cookie;
    std::string contentType;
    bool fromPage = false;  // a page in a browser asks: there is an Origin or a Sec-Fetch-Site
    std::string peer;       // the client's address, without its port
    int64_t mark = -1;      // of the last answer on this connection; -1 before the first
    // This cookie has come on this connection before, and WebReply::known was true then.
    bool known = false;
    std::string body;
    // True as soon as the client has gone, for an Admission::watched request; else null.
    std::shared_ptr<const std::atomic<bool>> gone;
};

struct WebReply {
    int status = 200;
    std::string body = "{}";
    std::string contentType = "application/json";
    std::string setCookie;  // empty: none
    std::string allow;      // the methods that a 405 names
    int retryAfter = 0;     // seconds; 0: not said
    std::string user;       // for the log, empty when nobody is logged in
    // Whether the request was from somebody known; none: as its Admission said.
    std::optional<bool> known;
    int64_t mark = -1;  // what the connection's next request brings back
};

}  // namespace dorvo
