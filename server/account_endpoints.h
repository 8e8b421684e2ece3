// Login and logout, and the session that a request's cookie stands for.
//
// A session is 256 random bits, sent as 64 hexadecimal digits; the catalog keeps their hash. It
// ends after being idle for its lifetime. Any thread; a login costs a password hash on purpose, so
// only a few run at once, and few wait: the threads that they hold are wanted for other requests.
#pragma once

#include <semaphore>
#include <string_view>

#include "catalog.h"
#include "httpd/web_request.h"
#include "login_limiter.h"

namespace dorvo {

class AccountEndpoints {
public:
    // Borrows the catalog. The lifetime is in seconds.
    AccountEndpoints(Catalog& catalog, int64_t sessionLifetime)
        : catalog_(catalog), sessionLifetime_(sessionLifetime) {}

    // The session of the cookie, if it is a valid one.
    std::optional<Session> session(std::string_view cookie);

    WebReply login(const WebRequest& request);
    WebReply logout(const WebRequest& request);

private:
    bool checkPassword(const std::string& user, std::string_view password,
                       const std::string& address);

    Catalog& catalog_;
    int64_t sessionLifetime_;
    LoginLimiter limiter_;
    std::counting_semaphore<8> admitted_{8};
    std::counting_semaphore<2> hashing_{2};
};

// Names of users and machines go into answers and logs as they are: not empty, at most 255 bytes,
// no control characters. Throws ServiceError 400.
std::string_view checkName(std::string_view name, std::string_view what);

}  // namespace dorvo
