#include "account_endpoints.h"

#include <algorithm>
#include <boost/json.hpp>
#include <chrono>

#include "digest.h"
#include "json_body.h"
#include "password_hash.h"
#include "service_error.h"

namespace dorvo {

namespace {

constexpr std::string_view cookieName = "DORVOSESSION=";
constexpr size_t tokenDigits = 64;
constexpr size_t maxName = 255;
constexpr size_t maxPassword = 1024;

int64_t now() {
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

template <class Semaphore>
class Release {
public:
    explicit Release(Semaphore& semaphore) : semaphore_(semaphore) {}
    ~Release() { semaphore_.release(); }
    Release(const Release&) = delete;
    Release& operator=(const Release&) = delete;

private:
    Semaphore& semaphore_;
};

// The token in a cookie header, which may carry other cookies too; empty when there is none.
std::string_view tokenOf(std::string_view cookie) {
    while (!cookie.empty()) {
        const size_t semicolon = cookie.find(';');
        std::string_view pair = cookie.substr(0, semicolon);
        cookie.remove_prefix(semicolon == std::string_view::npos ? cookie.size() : semicolon + 1);
        pair.remove_prefix(std::min(pair.find_first_not_of(' '), pair.size()));
        if (pair.starts_with(cookieName) && pair.size() == cookieName.size() + tokenDigits) {
            return pair.substr(cookieName.size());
        }
    }
    return {};
}

}  // namespace

std::string_view checkName(std::string_view name, std::string_view what) {
    checkId(name, what);
    if (name.size() > maxName) {
        throw ServiceError(400, "\"" + std::string(what) + "\" is too long");
    }
    return name;
}

std::optional<Session> AccountEndpoints::session(std::string_view cookie) {
    const std::string_view token = tokenOf(cookie);
    if (token.empty()) {
        return std::nullopt;
    }
    return catalog_.findSession(sha256(token), now(), sessionLifetime_);
}

WebReply AccountEndpoints::login(const WebRequest& request) {
    const auto body = parseBody(request.body);
    const std::string user(checkName(textMember(body, "user", maxName), "user"));
    const std::string_view password = textMember(body, "password", maxPassword);
    const std::string_view machine = checkName(textMember(body, "machine", maxName), "machine");
    if (!checkPassword(user, password, request.peer)) {
        throw ServiceError(401, "wrong user or password");
    }
    limiter_.succeeded(user, request.peer);
    const std::string token = hexText(randomBytes(tokenDigits / 2));
    catalog_.addSession(sha256(token), user, machine, now(), sessionLifetime_);
    WebReply reply;
    reply.setCookie = std::string(cookieName) + token;
    reply.user = user;
    reply.known = true;
    return reply;
}

WebReply AccountEndpoints::logout(const WebRequest& request) {
    parseBody(request.body);
    catalog_.removeSession(sha256(tokenOf(request.cookie)));
    return {};
}

bool AccountEndpoints::checkPassword(const std::string& user, std::string_view password,
                                     const std::string& address) {
    if (!admitted_.try_acquire()) {
        throw ServiceError(503, "too many logins at once");
    }
    const Release leave(admitted_);
    hashing_.acquire();
    const Release done(hashing_);
    if (!limiter_.begin(user, address, now())) {
        throw ServiceError(429, "too many failed logins, try again later");
    }
    return passwordMatches(password, catalog_.findPassword(user).value_or(""));
}

}  // namespace dorvo
