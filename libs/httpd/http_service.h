// What an HTTP server serves: judges each request by its head, then answers it when it is whole.
// Requests and answers are free of HTTP's machinery.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace dorvo {

struct WebRequest {
    std::string method;  // "POST"
    std::string path;    // percent-decoded, without the query
    std::string cookie;  // this and the next: header fields, empty when not there
    std::string contentType;
    std::vector<std::pair<std::string, std::string>> fields;  // all of them, as they came
    std::string peer;   // the client's address, without its port
    int64_t mark = -1;  // of the last answer on this connection; -1 before the first
    // This cookie has come on this connection before, and WebReply::known was true then.
    bool known = false;
    std::string body;
    // True as soon as the client has gone, for an Admission::watched request; else null.
    std::shared_ptr<const std::atomic<bool>> gone;

    // The first field of that name, in whatever case; null when there is none.
    [[nodiscard]] const std::string* find(std::string_view name) const;
    // Its value, empty when there is none.
    [[nodiscard]] std::string_view field(std::string_view name) const {
        const std::string* const found = find(name);
        return found == nullptr ? std::string_view() : *found;
    }
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
