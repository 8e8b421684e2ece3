// Login and logout, the session that a request's cookie stands for, and the checksum of the user's
// keys.
//
// A session is 256 random bits, sent as 64 hexadecimal digits; the catalog keeps their hash. It
// ends after being idle for its lifetime. Any thread; a login costs a password hash on purpose,
// which is the caller's to put where it holds up nobody.
//
// By the checksum a machine learns that it holds the wrong keys before it encrypts anything with
// them. The keys themselves never come here.
#pragma once

#include <boost/json/fwd.hpp>
#include <functional>
#include <string>
#include <string_view>

#include "catalog/accounts.h"
#include "endpoints/login_limiter.h"
#include "endpoints/session_clock.h"
#include "httpd/http_service.h"

namespace dorvo {

class AccountEndpoints {
public:
    // A login that makes sense, and what is left of it: the hash, to be called once.
    struct Login {
        std::string network;  // where it comes from
        std::string user;
        std::function<WebReply()> check;
    };

    // Borrows the accounts. The lifetime is in seconds.
    AccountEndpoints(Accounts& accounts, int64_t sessionLifetime);

    // The session of the cookie, if it is a valid one.
    std::optional<Session> session(std::string_view cookie);

    Login login(const WebRequest& request);
    WebReply logout(const WebRequest& request);

    // Both throw ServiceError to refuse, and have then changed nothing.
    boost::json::object getMd5OfKeys(const Session& session, const boost::json::object& body);
    boost::json::object exportMd5OfKeys(const Session& session, const boost::json::object& body);

private:
    WebReply finish(const Login& login, const std::string& peer, const std::string& password,
                    const std::string& machine);

    Accounts& accounts_;
    int64_t sessionLifetime_;
    SessionClock clock_;
    LoginLimiter limiter_;
};

// Names of users and machines go into answers and logs as they are: not empty, at most 255 bytes,
// no control characters. Throws ServiceError 400.
std::string_view checkName(std::string_view name, std::string_view what);

// What no login can bring is no account's. Throws std::runtime_error.
void checkAccount(std::string_view user, std::string_view password);

}  // namespace dorvo
