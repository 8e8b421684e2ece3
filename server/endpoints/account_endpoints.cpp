#include "endpoints/account_endpoints.h"

#include <algorithm>
#include <boost/json.hpp>
#include <chrono>
#include <stdexcept>

#include "common/digest.h"
#include "common/service_error.h"
#include "common/service_log.h"
#include "endpoints/json_body.h"
#include "endpoints/password_hash.h"
#include "httpd/client_address.h"

namespace dorvo {

namespace json = boost::json;

namespace {

constexpr std::string_view cookieName = "DORVOSESSION=";
constexpr size_t tokenDigits = 64;
constexpr size_t maxName = 255;
constexpr size_t maxPassword = 1024;
constexpr size_t md5Digits = 32;

int64_t uptime() {
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

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

[[noreturn]] void refuseLogin(const std::string& peer, const std::string& user) {
    logEvent("refused login, after too many failures, from " + peer + " as " + user);
    throw ServiceError(429, "too many failed logins, try again later");
}

}  // namespace

AccountEndpoints::AccountEndpoints(Accounts& accounts, int64_t sessionLifetime)
    : accounts_(accounts),
      sessionLifetime_(sessionLifetime),
      clock_(accounts.lastUse(), sessionLifetime) {}

std::string_view checkName(std::string_view name, std::string_view what) {
    checkId(name, what);
    if (name.size() > maxName) {
        throw ServiceError(400, "\"" + std::string(what) + "\" is too long");
    }
    return name;
}

void checkAccount(std::string_view user, std::string_view password) {
    json::object login;
    try {
        login = parseBody(json::serialize(json::object{{"user", user}, {"password", password}}));
    } catch (const ServiceError&) {
        throw std::runtime_error("the name or the password is no text in UTF-8, or has no end");
    }
    checkName(textMember(login, "user", maxName), "user");
    if (textMember(login, "password", maxPassword).empty()) {
        throw std::runtime_error("the password is empty");
    }
}

std::optional<Session> AccountEndpoints::session(std::string_view cookie) {
    const std::string_view token = tokenOf(cookie);
    if (token.empty()) {
        return std::nullopt;
    }
    return accounts_.findSession(sha256(token), clock_.now(), sessionLifetime_);
}

AccountEndpoints::Login AccountEndpoints::login(const WebRequest& request) {
    const auto body = parseBody(request.body);
    Login login;
    login.user = checkName(textMember(body, "user", maxName), "user");
    login.network = clientNetwork(request.peer);
    const std::string password(textMember(body, "password", maxPassword));
    const std::string machine(checkName(textMember(body, "machine", maxName), "machine"));
    // What will be refused takes nobody's place among those who wait.
    if (limiter_.closed(login.user, login.network, uptime())) {
        refuseLogin(request.peer, login.user);
    }
    login.check = [this, asked = login, peer = request.peer, password, machine] {
        return finish(asked, peer, password, machine);
    };
    return login;
}

WebReply AccountEndpoints::finish(const Login& login, const std::string& peer,
                                  const std::string& password, const std::string& machine) {
    if (!limiter_.begin(login.user, login.network, uptime())) {
        refuseLogin(peer, login.user);
    }
    bool matches = false;
    try {
        matches = passwordMatches(password, accounts_.findPassword(login.user).value_or(""));
    } catch (const std::exception&) {
        // That the storage is down says nothing of who asks.
        limiter_.takeBack(login.user, login.network);
        throw;
    }
    if (!matches) {
        logEvent("failed login from " + peer + " as " + login.user);
        throw ServiceError(401, "wrong user or password");
    }
    limiter_.succeeded(login.user, login.network);
    const std::string token = hexText(randomBytes(tokenDigits / 2));
    accounts_.addSession(sha256(token), login.user, machine, clock_.now(), sessionLifetime_);
    WebReply reply;
    reply.setCookie = std::string(cookieName) + token;
    reply.user = login.user;
    reply.known = true;
    return reply;
}

WebReply AccountEndpoints::logout(const WebRequest& request) {
    parseBody(request.body);
    accounts_.removeSession(sha256(tokenOf(request.cookie)));
    return {};
}

json::object AccountEndpoints::getMd5OfKeys(const Session& session, const json::object&) {
    return {{"md5", accounts_.findKeys(session.userId)}};
}

json::object AccountEndpoints::exportMd5OfKeys(const Session& session, const json::object& body) {
    const std::string_view md5 = textMember(body, "md5", md5Digits);
    if (md5.size() != md5Digits ||
        md5.find_first_not_of("0123456789abcdef") != std::string_view::npos) {
        throw ServiceError(400, "\"md5\" must be 32 lower-case hexadecimal digits");
    }
    if (!accounts_.putKeys(session.userId, md5)) {
        throw ServiceError(409, "the user has other keys");
    }
    return {};
}

}  // namespace dorvo
