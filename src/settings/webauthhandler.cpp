#include "settings/webauthhandler.h"

#include "base/log.h"
#include "base/text.h"
#include "settings/cookiemanager.h"
#include "settings/passwordmanager.h"

namespace dorvo {
namespace {

template <class Store>
Store& store() {
    return *ATL::CComSingleton<Store, ATL::CComAutoCriticalSection>::instance();
}

}  // namespace

WebAuthHandler::WebAuthHandler() = default;
WebAuthHandler::WebAuthHandler(const WebAuthHandler& other) = default;
WebAuthHandler& WebAuthHandler::operator=(const WebAuthHandler& other) = default;
WebAuthHandler::~WebAuthHandler() = default;

bool WebAuthHandler::onAuthRequired(std::string& user, std::string& password,
                                    const std::string& cookie) {
    const FunctionTrace trace("WebAuthHandler::onAuthRequired", "webauthhandler.cpp");
    return store<CookieManagerImpl>().findUser(cookie.c_str(), user) &&
           store<PasswordManagerImpl>().findPassword(user.c_str(), password, serverNow());
}

void WebAuthHandler::onSetCookie(const char* user, const char* newCookie, const char* oldCookie) {
    const FunctionTrace trace("WebAuthHandler::onSetCookie", "webauthhandler.cpp");
    auto& cookies = store<CookieManagerImpl>();
    const bool kept = oldCookie != nullptr
                          ? cookies.replaceCookie(user, newCookie, oldCookie, serverNow())
                          : cookies.saveCookie(user, newCookie, serverNow());
    if (isEmpty(newCookie)) {
        return;
    }
    newCookie_ = newCookie;
    if (!kept) {
        log(LogLevel::warning,
            "The new session of user {%s} could not be written down: it ends with this process.\n",
            isEmpty(user) ? "" : user);
    }
}

std::string WebAuthHandler::serverNow() const {
    return server_.empty() ? serverOfOptions() : server_;
}

void WebAuthHandler::onError(unsigned long error) {
    error_ = static_cast<uint32_t>(error);
}

void WebAuthHandler::reSet() {
    error_ = 0;
    newCookie_.clear();
}

}  // namespace dorvo
