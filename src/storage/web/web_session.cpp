#include "storage/web/web_session.h"

#include <windows.h>

#include <chrono>
#include <map>
#include <mutex>
#include <span>

#include "base/http_error.h"
#include "base/log.h"
#include "base/machine_name.h"
#include "base/md5.h"
#include "settings/cookiemanager.h"
#include "storage/web/web_login.h"

namespace dorvo {
namespace {

constexpr uint32_t unauthorized = withHttpMark(401);

// What the sessions of the process share. It is never destroyed: at process exit nothing waits.
struct Logins {
    std::timed_mutex lock;                       // one login at a time; guards what follows
    std::map<std::string, std::string> refused;  // user -> trace of the last refused login
};

Logins& logins() {
    static Logins& all = *new Logins;
    return all;
}

// Tells a login again without keeping its password.
std::string traceOf(const std::string& server, const std::string& cookie,
                    const std::string& password) {
    std::string all = server + '\n' + cookie + '\n' + password;
    std::string trace = Md5::of(std::as_bytes(std::span(all)));
    SecureZeroMemory(all.data(), all.size());
    return trace;
}

bool isRefusal(HTTP_Command& command) {
    const int status = command.http_response().status();
    return status == 401 || status == 406;
}

}  // namespace

Web_Session::Web_Session(std::string user, std::string cookie)
    : user_(std::move(user)), cookie_(std::move(cookie)) {}

// Before it is aimed, the one that it will be aimed at as far as is known.
std::string Web_Session::server() const {
    const HTTP_Invoker_T* const target = invoker_.invoker();
    return target == nullptr ? serverOfOptions() : serverName(target->host(), target->port());
}

bool Web_Session::find_stored(std::string& cookie) {
    found_for_ = server();
    return ATL::CComSingleton<CookieManagerImpl, ATL::CComAutoCriticalSection>::instance()
        ->findCookie(user_.c_str(), cookie, found_for_);
}

void Web_Session::set_interrupter(const interrupter* interrupter) {
    interrupter_ = interrupter;
    invoker_.set_interrupter(interrupter);
}

// False when the session must stop: another session's login may take as long as its server.
bool Web_Session::wait_for_logins() const {
    while (!logins().lock.try_lock_for(std::chrono::seconds(1))) {
        if (interrupter_ != nullptr && interrupter_->interrupted()) {
            return false;
        }
    }
    return true;
}

// A login that is under way takes the old cookie out of the store before the new one is in it.
const std::string& Web_Session::cookie() {
    if (cookie_.empty() && !user_.empty() && !find_stored(cookie_) && wait_for_logins()) {
        const std::lock_guard guard(logins().lock, std::adopt_lock);
        find_stored(cookie_);
    }
    return cookie_;
}

int Web_Session::run(HTTP_Command& command, uint64_t* sent) {
    stores_.reSet();
    if (!found_for_.empty() && found_for_ != server()) {
        cookie_.clear();  // another server was set before this one was aimed at
    }
    cookie();
    if (run_once(command, sent) != 0) {
        return -1;
    }
    // What the store has may be refused too, and then there is still the login.
    Renewal renewal = Renewal::stored;
    for (int tries = 0; tries < 2 && renewal == Renewal::stored && isRefusal(command); ++tries) {
        renewal = renew();
        if (renewal == Renewal::stopped) {
            SetLastError(ERROR_CANCELLED);
            return -1;
        }
        if (renewal == Renewal::none) {
            return 0;
        }
        command.state(HTTP_Command::READY);
        if (run_once(command, sent) != 0) {
            return -1;
        }
    }
    if (renewal == Renewal::login && isRefusal(command)) {
        handler_->onError(withHttpMark(static_cast<uint32_t>(command.http_response().status())));
    }
    return 0;
}

int Web_Session::run_once(HTTP_Command& command, uint64_t* sent) {
    command.http_request().cookie(cookie_.c_str());
    if (invoker_.run(command) != 0) {
        return -1;
    }
    if (sent != nullptr) {
        *sent += command.http_request().content_length();
    }
    return 0;
}

Web_Session::Renewal Web_Session::renew() {
    if (handler_ == nullptr || user_.empty()) {
        return Renewal::none;
    }
    if (!wait_for_logins()) {
        return Renewal::stopped;
    }
    const std::lock_guard guard(logins().lock, std::adopt_lock);
    std::string stored;
    if (find_stored(stored) && stored != cookie_) {
        cookie_ = stored;
        return Renewal::stored;
    }
    return cookie_.empty() ? Renewal::none : log_in();
}

// With the lock of the logins held.
Web_Session::Renewal Web_Session::log_in() {
    std::string user;
    std::string password;
    std::string machine;
    stores_.server(server());
    if (!handler_->onAuthRequired(user, password, cookie_) || user != user_ ||
        !machineName(machine)) {
        return Renewal::none;
    }
    const std::string trace = traceOf(server(), cookie_, password);
    if (logins().refused[user] == trace) {
        SecureZeroMemory(password.data(), password.size());
        return Renewal::none;
    }
    std::string fresh;
    const bool done = logIn(invoker_, user, password, machine, fresh);
    const DWORD error = GetLastError();
    SecureZeroMemory(password.data(), password.size());
    if (!done) {
        handler_->onError(error);
        if (error == unauthorized) {
            logins().refused[user] = trace;
        }
        return error == ERROR_CANCELLED ? Renewal::stopped : Renewal::none;
    }
    logins().refused.erase(user);
    handler_->onSetCookie(user.c_str(), fresh.c_str(), cookie_.c_str());
    cookie_ = fresh;
    log(LogLevel::information, "User {%s} is logged in again.\n", user.c_str());
    return Renewal::login;
}

}  // namespace dorvo
