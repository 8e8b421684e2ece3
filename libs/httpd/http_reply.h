// The head of an answer.
#pragma once

#include <string>

#include "httpd/web_request.h"

namespace dorvo {

// With its empty line; for a client that speaks HTTP/1.`minor`.
std::string replyHead(const WebReply& reply, unsigned minor, bool keepAlive);

}  // namespace dorvo
