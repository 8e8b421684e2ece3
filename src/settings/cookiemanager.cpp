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
    return saveCookie(user, cookie, serverOfOptions());
}

bool CookieManagerImpl::saveCookie(const char* user, const char* cookie,
                                   const std::string& server) {
    if (isEmpty(user) || isEmpty(cookie)) {
        return false;
    }
    const std::lock_guard guard(lock_);
    const auto held = cookies_.find(cookie);
    if (held != cookies_.end() && held->second == json_spirit::Value(user) &&
        belongsTo(cookies_, cookie, server)) {
        return true;
    }
    put(user, cookie, server);
    return save();
}

bool CookieManagerImpl::replaceCookie(const char* user, const char* cookie, const char* old,
                                      const std::string& server) {
    const std::lock_guard guard(lock_);
    const bool erased = !isEmpty(old) && erase(old);
    const bool given = !isEmpty(user) && !isEmpty(cookie);
    if (given) {
        put(user, cookie, server);
    }
    return (erased || given) && save();
}

bool CookieManagerImpl::replaceCookies(const char* user, const char* cookie,
                                       const std::string& server) {
    if (isEmpty(user) || isEmpty(cookie)) {
        return false;
    }
    const std::lock_guard guard(lock_);
    eraseUser(user);
    put(user, cookie, server);
    return save();
}

bool CookieManagerImpl::removeCookie(const char* cookie) {
    if (isEmpty(cookie)) {
        return false;
    }
    const std::lock_guard guard(lock_);
    return erase(cookie) && save();
}

bool CookieManagerImpl::removeAllCookie() {
    const std::lock_guard guard(lock_);
    cookies_.clear();
    return save();
}

bool CookieManagerImpl::removeUser(const char* user) {
    if (isEmpty(user)) {
        return false;
    }
    const std::lock_guard guard(lock_);
    const size_t before = cookies_.size();
    eraseUser(user);
    return cookies_.size() == before || save();
}

// The three with the lock held; they save nothing.

void CookieManagerImpl::put(const char* user, const char* cookie, const std::string& server) {
    cookies_[cookie] = user;
    bindToServer(cookies_, cookie, server);
}

bool CookieManagerImpl::erase(const std::string& cookie) {
    bindToServer(cookies_, cookie, {});
    return cookies_.erase(cookie) != 0;
}

void CookieManagerImpl::eraseUser(const char* user) {
    std::vector<std::string> own;
    for (const auto& [cookie, owner] : cookies_) {
        if (owner == json_spirit::Value(user)) {
            own.push_back(cookie);
        }
    }
    for (const std::string& cookie : own) {
        erase(cookie);
    }
}

bool CookieManagerImpl::bindTo(const std::string& server, Bind which) {
    const std::lock_guard guard(lock_);
    return !bindToServer(cookies_, which, server) || save();
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
    return findCookie(user, cookie, serverOfOptions());
}

bool CookieManagerImpl::findCookie(const char* user, std::string& cookie,
                                   const std::string& server) const {
    if (isEmpty(user)) {
        return false;
    }
    const std::lock_guard guard(lock_);
    const auto held = std::find_if(cookies_.begin(), cookies_.end(), [&](const auto& entry) {
        return entry.second == json_spirit::Value(user) && belongsTo(cookies_, entry.first, server);
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
    return users({});
}

std::vector<std::string> CookieManagerImpl::users(const std::string& server) const {
    std::set<std::string> users;
    const std::lock_guard guard(lock_);
    for (const auto& [cookie, user] : cookies_) {
        if (user.type() == json_spirit::str_type && belongsTo(cookies_, cookie, server)) {
            users.insert(user.get_str());
        }
    }
    return {users.begin(), users.end()};
}

}  // namespace dorvo

template class ATL::CComSingleton<dorvo::CookieManagerImpl, ATL::CComAutoCriticalSection>;
