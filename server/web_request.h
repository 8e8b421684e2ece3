// A request and its answer between the HTTP server and the service, free of HTTP's machinery.
#pragma once

#include <string>

namespace dorvo {

struct WebRequest {
    std::string path;  // percent-decoded, without the query
    std::string cookie;
    std::string contentType;
    std::string peer;  // the client's address, without its port
    std::string body;
};

struct WebReply {
    int status = 200;
    std::string body = "{}";
    std::string contentType = "application/json";
    std::string setCookie;  // empty: none
    std::string user;       // for the log, empty when nobody is logged in
};

// The answer to a request that is refused: {"error": why}.
WebReply errorReply(int status, const std::string& why);

}  // namespace dorvo
