// What an HTTP server serves: judges each request by its head, then answers it when it is whole.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>

#include "httpd/web_request.h"

namespace dorvo {

// What a request's head leads to.
struct Admission {
    size_t bodyLimit = 0;  // bytes; a larger body is refused with 413
    // Bodies above this are taken in only when judgeLargeBody() has nothing against it.
    size_t judgedBytes = SIZE_MAX;
    size_t weight = 1;  // bytes of memory that a byte of the body comes to while it is handled
    std::optional<WebReply> refusal;  // the answer, after the body was read and dropped
    bool known = false;               // from somebody known; see HttpLimits
    bool watched = false;             // WebRequest::gone tells when the client goes meanwhile
};

// A request that is answered later: it holds no thread meanwhile.
struct LongPoll {
    // Called at most once when no answer is wanted any more: the client has gone, the server stops,
    // or the patience is over. Drops the callback if it still has it; an answer that comes even so
    // is ignored. Does not block.
    std::function<void()> withdraw;
    std::optional<std::chrono::milliseconds> patience;  // none: as long as the client waits
    WebReply late;                                      // the answer when the patience is over
    // Worked on, not waited for: as with a call that runs, nobody notices a client that goes, and a
    // stop lets it finish.
    bool work = false;
};

class HttpService {
public:
    // Called once, from any thread, while the server is not stopped or within handle().
    using Respond = std::function<void(WebReply reply)>;

    HttpService() = default;
    virtual ~HttpService() = default;
    HttpService(const HttpService&) = delete;
    HttpService& operator=(const HttpService&) = delete;

    // These are called from any thread and never throw: refusals and faults are answers too.

    // On a thread that serves connections: does not block. The body is not there yet.
    virtual Admission admit(const WebRequest& head) = 0;
    // On a worker: why the body of this request is not taken in. If it is, the request is from
    // somebody known.
    virtual std::optional<WebReply> judgeLargeBody(const WebRequest& /*head*/) { return {}; }
    // On a worker, may block. Answers before it returns, or gives what is needed to wait.
    virtual std::optional<LongPoll> handle(const WebRequest& request, Respond respond) = 0;

    // The answer to a request that the server itself refuses: its `why` is plain ASCII.
    virtual WebReply refuse(int status, const char* why) = 0;
};

}  // namespace dorvo
