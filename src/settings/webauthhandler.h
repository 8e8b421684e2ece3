// What answers when the server refuses a session, and hears of what becomes of it; and the one that
// does so with what the cookie and password stores hold, and keeps new cookies there.
//
// Who sets a handler owns it. Calls come on the thread that runs the command; one handler serves
// one session at a time. The order of the operations is part of the interface.
//
// A WebAuthHandler is not locked. The stores lock themselves, each for one operation.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "base/api.h"

namespace dorvo {

class DORVO_JOB_API WebClientEventHandler {
public:
    virtual ~WebClientEventHandler() = default;

    // The server refuses the session that `cookie` names. True with the user and the password of a
    // new login; false when there is none to be tried.
    virtual bool onAuthRequired(std::string& user, std::string& password,
                                const std::string& cookie) = 0;

    // The server has given the user a new cookie. `oldCookie` is the one it takes the place of,
    // null when there is none.
    virtual void onSetCookie(const char* user, const char* newCookie, const char* oldCookie) = 0;

    // Reserved; does nothing.
    virtual void onNotify(uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t) {}

    // A login has failed with this error code, or its session was refused too.
    virtual void onError(unsigned long error) = 0;

    // Reserved; answers no.
    virtual bool onQuery(uintptr_t) { return false; }
};

class DORVO_JOB_API WebAuthHandler : public WebClientEventHandler {
public:
    WebAuthHandler();
    WebAuthHandler(const WebAuthHandler& other);
    WebAuthHandler& operator=(const WebAuthHandler& other);
    ~WebAuthHandler() override;

    // The server that it logs in to, as serverName() has it; without one that which is set. Cookies
    // and passwords of others are none to it.
    void server(std::string name) { server_ = std::move(name); }

    // The cookie's owner and that user's stored password. False when either is unknown; `user` is
    // filled as soon as the owner is known.
    bool onAuthRequired(std::string& user, std::string& password,
                        const std::string& cookie) override;
    // Stores the new cookie in the place of the old one, in one change of the store. An empty new
    // one is not stored, the old one forgotten all the same.
    void onSetCookie(const char* user, const char* newCookie, const char* oldCookie) override;
    void onError(unsigned long error) override;

    // What onError was last told, 0 at first.
    uint32_t error() const { return error_; }
    // The last cookie that was not empty, empty at first.
    const std::string& newCookie() const { return newCookie_; }
    // Back to the beginning, for the next request.
    void reSet();

private:
    std::string serverNow() const;

    std::string server_;
    uint32_t error_ = 0;
    std::string newCookie_;
};

}  // namespace dorvo
