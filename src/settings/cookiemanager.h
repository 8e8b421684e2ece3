// The session cookies of the web service and the users they belong to.
//
// Kept encoded in "\cookies" of the data directory. One user may own several cookies, a cookie
// belongs to one user and to the server that gave it (serverbinding.h), which without a `server` is
// the one that is set. One object a process, reached through
// CComSingleton<CookieManagerImpl, CComAutoCriticalSection>; it reads its file when it is made.
// Any thread. A null or empty argument makes an operation return false without doing anything; an
// operation that changes something returns whether the file could be written.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "base/api.h"
#include "base/critical_section.h"
#include "base/singleton.h"
#include "settings/serverbinding.h"

namespace dorvo {

class DORVO_JOB_API CookieManagerImpl {
public:
    CookieManagerImpl();
    ~CookieManagerImpl();
    CookieManagerImpl(const CookieManagerImpl&) = delete;
    CookieManagerImpl& operator=(const CookieManagerImpl&) = delete;

    // Gives the cookie to the user, whoever had it. Writes nothing when it is the user's already.
    bool saveCookie(const char* user, const char* cookie);
    bool saveCookie(const char* user, const char* cookie, const std::string& server);
    // Forgets `old`, whoever has it, and saves the cookie, in one change: nobody sees the user
    // between the two. One of them may be null or empty.
    bool replaceCookie(const char* user, const char* cookie, const char* old,
                       const std::string& server);
    // The same with all cookies that the user has, whatever their server.
    bool replaceCookies(const char* user, const char* cookie, const std::string& server);
    // False when the cookie is not there.
    bool removeCookie(const char* cookie);
    bool removeAllCookie();
    // The user's cookies, whatever their server. False when the file could not be written.
    bool removeUser(const char* user);
    // Gives cookies to the server; writes nothing when nothing changes.
    bool bindTo(const std::string& server, Bind which);

    bool findUser(const char* cookie, std::string& user) const;
    // The user's smallest cookie in byte order, of those for the server.
    bool findCookie(const char* user, std::string& cookie) const;
    bool findCookie(const char* user, std::string& cookie, const std::string& server) const;
    bool isCookieValid(const char* cookie) const;
    // Everybody who has a session, in byte order, each once: with the server, or with any.
    std::vector<std::string> users(const std::string& server) const;
    std::vector<std::string> users() const;

private:
    bool init();
    bool save() const;
    bool erase(const std::string& cookie);
    void eraseUser(const char* user);
    void put(const char* user, const char* cookie, const std::string& server);

    mutable CriticalSection lock_;  // guards cookies_ and the file
    StoreEntries cookies_;          // cookie -> user
};

}  // namespace dorvo

extern template class DORVO_JOB_API
    ATL::CComSingleton<dorvo::CookieManagerImpl, ATL::CComAutoCriticalSection>;
