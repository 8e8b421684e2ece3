#include "storage/web/web_session.h"

#include <windows.h>

#include "base/error_codes.h"
#include "settings/cookiemanager.h"

namespace dorvo {
namespace {

using Renewal = Web_Login::Renewal;

bool isRefusal(HTTP_Command& command) {
    const int status = command.http_response().status();
    return status == 401 || status == 406;
}

}  // namespace

Web_Session::Web_Session(std::string user, std::string cookie)
    : user_(std::move(user)), cookie_(std::move(cookie)) {}

void Web_Session::set_interrupter(const interrupter* interrupter) {
    interrupter_ = interrupter;
    invoker_.set_interrupter(interrupter);
}

bool Web_Session::find_stored() {
    found_for_ = serverOf(invoker_);
    return ATL::CComSingleton<CookieManagerImpl, ATL::CComAutoCriticalSection>::instance()
        ->findCookie(user_.c_str(), cookie_, found_for_);
}

const std::string& Web_Session::cookie() {
    if (cookie_.empty() && !user_.empty()) {
        find_stored();
    }
    return cookie_;
}

int Web_Session::run(HTTP_Command& command, uint64_t* sent) {
    stores_.reSet();
    if (!found_for_.empty() && found_for_ != serverOf(invoker_)) {
        cookie_.clear();  // another server was set before this one was aimed at
    }
    cookie();
    // What the store has may be refused too, and then there is still the login.
    auto renewal = Renewal::stored;
    for (int tries = 0;; ++tries) {
        command.http_request().cookie(cookie_.c_str());
        if (invoker_.run(command) != 0) {
            return -1;
        }
        if (sent != nullptr) {
            *sent += command.http_request().content_length();
        }
        if (!isRefusal(command) || renewal != Renewal::stored || tries == 2) {
            break;
        }
        renewal = renew();
        if (renewal == Renewal::stopped) {
            SetLastError(ERROR_CANCELLED);
            return -1;
        }
        if (renewal == Renewal::none) {
            return 0;
        }
        command.state(HTTP_Command::READY);
    }
    if (renewal == Renewal::login && isRefusal(command)) {
        handler_->onError(withHttpMark(static_cast<uint32_t>(command.http_response().status())));
    }
    return 0;
}

Renewal Web_Session::renew() {
    if (handler_ == nullptr || user_.empty()) {
        return Renewal::none;
    }
    if (cookie_.empty()) {
        return find_stored() ? Renewal::stored : Renewal::none;
    }
    const std::string server = serverOf(invoker_);
    stores_.server(server);
    const std::string refused = cookie_;
    uint32_t error = 0;
    return Web_Login::renew({user_, server, refused, *handler_, invoker_, interrupter_}, cookie_,
                            error);
}

}  // namespace dorvo
