#include "settings/cookiemanager.h"

#include <algorithm>
#include <mutex>
#include <set>

#include "base/text.h"
#include "settings/encodedstore.h"
#include "settings/storefile.h"

namespace dorvo {
namespace {

constexpr const wchar_t* fileName = L"\\cookies";
constexpr EncodedStoreTexts texts = {
    LogLevel::information,
    "Failed to decode the cookie storage file.\n",
    "Failed to parse cookie storage, Line %d, column %d, %s.\n",
    "Cookie storage is not JSON object.\n",
    "Failed to encode the cookie storage file.\n",
};

}  // namespace

CookieManagerImpl::CookieManagerImpl() {
    init();
}

CookieManagerImpl::~CookieManagerImpl() = default;

bool CookieManagerImpl::init() {
    const FunctionTrace trace("CookieManagerImpl::init", "cookiemanager.cpp");
    return loadEncodedStore(storePath(fileName), texts, cookies_);
}

bool CookieManagerImpl::save() const {
    const FunctionTrace trace("CookieManagerImpl::save", "cookiemanager.cpp");
    return saveEncodedStore(storePath(fileName), texts, cookies_);
}

bool CookieManagerImpl::saveCookie(const char* user, const char* cookie) {
    if (isEmpty(user) || isEmpty(cookie)) {
        return false;
    }
    const std::lock_guard guard(lock_);
    const auto held = cookies_.find(cookie);
    if (held != cookies_.end() && held->second == json_spirit::Value(user)) {
        return true;
    }
    cookies_[cookie] = user;
    return save();
}

bool CookieManagerImpl::removeCookie(const char* cookie) {
    if (isEmpty(cookie)) {
        return false;
    }
    const std::lock_guard guard(lock_);
    return cookies_.erase(cookie) != 0 && save();
}

bool CookieManagerImpl::removeAllCookie() {
    const std::lock_guard guard(lock_);
    cookies_.clear();
    return save();
}

bool CookieManagerImpl::findUser(const char* cookie, std::string& user) const {
    if (isEmpty(cookie)) {
        return false;
    }
    const std::lock_guard guard(lock_);
    const auto held = cookies_.find(cookie);
    if (held == cookies_.end() || held->second.type() != json_spirit::str_type) {
        return false;
    }
    user = held->second.get_str();
    return true;
}

bool CookieManagerImpl::findCookie(const char* user, std::string& cookie) const {
    if (isEmpty(user)) {
        return false;
    }
    const std::lock_guard guard(lock_);
    const auto held = std::find_if(cookies_.begin(), cookies_.end(), [&](const auto& entry) {
        return entry.second == json_spirit::Value(user);
    });
    if (held == cookies_.end()) {
        return false;
    }
    cookie = held->first;
    return true;
}

bool CookieManagerImpl::isCookieValid(const char* cookie) const {
    if (isEmpty(cookie)) {
        return false;
    }
    const std::lock_guard guard(lock_);
    return cookies_.contains(cookie);
}

std::vector<std::string> CookieManagerImpl::users() const {
    std::set<std::string> users;
    const std::lock_guard guard(lock_);
    for (const auto& [cookie, user] : cookies_) {
        if (user.type() == json_spirit::str_type) {
            users.insert(user.get_str());
        }
    }
    return {users.begin(), users.end()};
}

}  // namespace dorvo

template class ATL::CComSingleton<dorvo::CookieManagerImpl, ATL::CComAutoCriticalSection>;
