#include "storage/web/web_login.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <span>
#include <vector>

#include "base/error_codes.h"
#include "base/log.h"
#include "base/machine_name.h"
#include "base/md5.h"
#include "http_util/web_server_invoker.h"
#include "settings/cookiemanager.h"
#include "settings/passwordmanager.h"
#include "settings/webauthhandler.h"
#include "settings/wipe.h"
#include "storage/web/web_exchange.h"
#include "storage/web/web_requests.h"

namespace dorvo {
namespace {

constexpr uint32_t unauthorized = withHttpMark(401);

// What the logins of the process share. It is never destroyed: at process exit nothing waits.
struct Logins {
    std::mutex lock;                // guards what follows, and orders the changes of the stores
    std::condition_variable ended;  // a renewal has
    std::map<std::string, bool> renewing;        // user -> a login or logout has overtaken it
    std::map<std::string, std::string> refused;  // user -> trace of the password
};

Logins& logins() {
    static Logins& all = *new Logins;
    return all;
}

template <class Store>
Store& store() {
    return *ATL::CComSingleton<Store, ATL::CComAutoCriticalSection>::instance();
}

// Tells a login again without keeping its password.
std::string traceOf(const std::string& server, const std::string& password) {
    std::string all = server + '\n' + password;
    std::string trace = Md5::of(std::as_bytes(std::span(all)));
    SecureZeroMemory(all.data(), all.size());
    return trace;
}

// The user has logged in or out. With the lock held.
void overtake(const std::string& user) {
    if (const auto renewal = logins().renewing.find(user); renewal != logins().renewing.end()) {
        renewal->second = true;
    }
    logins().refused.erase(user);
}

// Asks the server for a session; false is logged and leaves the last error. The cookie is the text
// that is to be sent back.
bool askForSession(Web_Server_Invoker& invoker, const std::string& user,
                   const std::string& password, std::string& cookie) {
    std::string machine;
    if (!machineName(machine)) {
        return false;
    }
    Command_To_Server<Login_Request, Response_T<std::string>> command("Login",
                                                                      {user, password, machine});
    if (!judge(invoker.run(command), command, "log in user", user)) {
        return false;
    }
    const char* const sent = command.response().set_cookie();
    if (sent == nullptr || *sent == '\0') {
        return logFailed(ERROR_INVALID_DATA, "Login: the server sent no cookie.\n");
    }
    cookie = sent;
    return true;
}

// Ends a session. Its error code, 0 also when the server knows no such session any more.
DWORD endSession(Web_Server_Invoker& invoker, const std::string& user, const std::string& cookie) {
    Command_To_Server<Logout_Request, Response_T<json_spirit::Value>> command("Logout", {});
    command.request().cookie(cookie.c_str());
    if (judge(invoker.run(command), command, "log out user", user)) {
        return 0;
    }
    const DWORD error = GetLastError();
    return error == unauthorized ? 0 : error;
}

// Knows the user, who has no cookie by which the stores could tell.
class PasswordOf : public WebAuthHandler {
public:
    PasswordOf(const std::string& user, const std::string& serverName)
        : user_(user), server_(serverName) {
        server(serverName);
    }

    bool onAuthRequired(std::string& user, std::string& password, const std::string&) override {
        user = user_;
        return store<PasswordManagerImpl>().findPassword(user_.c_str(), password, server_);
    }

private:
    const std::string& user_;    // borrowed
    const std::string& server_;  // borrowed
};

bool mustStop(const interrupter* stop) {
    return stop != nullptr && stop->interrupted();
}

// A renewal that is under way, without the lock while it lives.
class UnderWay {
public:
    UnderWay(std::unique_lock<std::mutex>& guard, const std::string& user)
        : guard_(guard), user_(user) {
        logins().renewing[user_] = false;
        guard_.unlock();
    }
    ~UnderWay() {
        if (!guard_.owns_lock()) {
            overtaken();
        }
    }
    UnderWay(const UnderWay&) = delete;
    UnderWay& operator=(const UnderWay&) = delete;

    // It is over, and the lock held again: whether its user has logged in or out meanwhile.
    bool overtaken() {
        guard_.lock();
        logins().ended.notify_all();
        return logins().renewing.extract(user_).mapped();
    }

private:
    std::unique_lock<std::mutex>& guard_;  // borrowed
    const std::string& user_;              // borrowed
};

}  // namespace

Web_Login::End Web_Login::login(const std::string& user, const std::string& password,
                                const interrupter* stop) {
    Web_Server_Invoker invoker;
    invoker.set_interrupter(stop);
    std::string cookie;
    if (!aimAtServerOfOptions(invoker) || !askForSession(invoker, user, password, cookie)) {
        return End::failed;
    }
    const std::string server = serverOf(invoker);
    const std::lock_guard guard(logins().lock);
    overtake(user);
    const bool saved =
        store<CookieManagerImpl>().replaceCookies(user.c_str(), cookie.c_str(), server) &&
        store<PasswordManagerImpl>().savePassword(user.c_str(), password.c_str(), server);
    return saved ? End::done : End::not_saved;
}

Web_Login::End Web_Login::logout(const std::string& user, const interrupter* stop) {
    auto& cookies = store<CookieManagerImpl>();
    auto& passwords = store<PasswordManagerImpl>();
    Web_Server_Invoker invoker;
    invoker.set_interrupter(stop);
    const DWORD unaimed = aimAtServerOfOptions(invoker) ? 0 : GetLastError();
    const std::string server = serverOf(invoker);
    std::vector<std::string> sessions;
    bool forgotten = true;
    {
        const std::lock_guard guard(logins().lock);
        const bool hasPassword = passwords.hasPassword(user.c_str());
        const std::vector<std::string> users = cookies.users();
        if (!hasPassword && std::find(users.begin(), users.end(), user) == users.end()) {
            return End::nobody;
        }
        overtake(user);
        if (hasPassword) {
            forgotten = passwords.removePassword(user.c_str());
        }
        std::string cookie;
        while (cookies.findCookie(user.c_str(), cookie, server)) {
            sessions.push_back(cookie);
            // The cookie is gone from memory even when the file could not be written.
            forgotten = cookies.removeCookie(cookie.c_str()) && forgotten;
        }
        // Sessions with other servers are forgotten; this one has no business with them.
        forgotten = cookies.removeUser(user.c_str()) && forgotten;
    }
    DWORD failed = 0;
    for (const std::string& cookie : sessions) {
        const DWORD error = unaimed != 0 ? unaimed : endSession(invoker, user, cookie);
        failed = error != 0 ? error : failed;
    }
    SetLastError(failed);
    return !forgotten ? End::not_saved : failed != 0 ? End::failed : End::done;
}

bool Web_Login::needed(const std::string& user) {
    std::string password;
    const WipeAtEnd wipe(password);
    std::string cookie;
    return store<PasswordManagerImpl>().findPassword(user.c_str(), password) &&
           !store<CookieManagerImpl>().findCookie(user.c_str(), cookie);
}

uint32_t Web_Login::renew(const std::string& user, const interrupter* stop) {
    if (!needed(user)) {
        return 0;
    }
    Web_Server_Invoker invoker;
    invoker.set_interrupter(stop);
    if (!aimAtServerOfOptions(invoker)) {
        return GetLastError();
    }
    const std::string server = serverOf(invoker);
    PasswordOf handler(user, server);
    const std::string none;
    std::string cookie;
    uint32_t error = 0;
    const Renewal renewal = renew({user, server, none, handler, invoker, stop}, cookie, error);
    return renewal == Renewal::stopped ? ERROR_CANCELLED : error;
}

Web_Login::Renewal Web_Login::renew(const Refused& asked, std::string& cookie, uint32_t& error) {
    error = 0;
    Logins& all = logins();
    std::unique_lock guard(all.lock);
    while (all.renewing.contains(asked.user)) {
        all.ended.wait_for(guard, std::chrono::seconds(1));
        if (mustStop(asked.stop)) {
            return Renewal::stopped;
        }
    }
    const auto newInStore = [&] {
        std::string stored;
        const bool found =
            store<CookieManagerImpl>().findCookie(asked.user.c_str(), stored, asked.server) &&
            stored != asked.cookie;
        cookie = found ? stored : cookie;
        return found ? Renewal::stored : Renewal::none;
    };
    if (newInStore() == Renewal::stored) {
        return Renewal::stored;
    }
    std::string user;
    std::string password;
    const WipeAtEnd wipe(password);
    if (!asked.handler.onAuthRequired(user, password, asked.cookie) || user != asked.user) {
        return Renewal::none;
    }
    const std::string trace = traceOf(asked.server, password);
    if (const auto known = all.refused.find(user);
        known != all.refused.end() && known->second == trace) {
        error = unauthorized;
        return Renewal::none;
    }
    std::string fresh;
    UnderWay underWay(guard, user);
    error = askForSession(asked.invoker, user, password, fresh) ? 0 : GetLastError();
    if (underWay.overtaken()) {
        if (error == 0) {
            // Nobody keeps it: it would stay open at the server of a user who has logged out.
            guard.unlock();
            endSession(asked.invoker, user, fresh);
            guard.lock();
        }
        error = 0;
        return newInStore();
    }
    if (error != 0) {
        asked.handler.onError(error);
        if (error == unauthorized) {
            all.refused[user] = trace;
        }
        return error == ERROR_CANCELLED ? Renewal::stopped : Renewal::none;
    }
    const bool first = asked.cookie.empty();
    asked.handler.onSetCookie(user.c_str(), fresh.c_str(), first ? nullptr : asked.cookie.c_str());
    cookie = fresh;
    log(LogLevel::information, "User {%s} is logged in again.\n", user);
    return Renewal::login;
}

}  // namespace dorvo
