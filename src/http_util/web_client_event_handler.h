// Answers the HTTP layer when the server refuses a session, and hears of what becomes of it.
//
// Who sets a handler owns it. Calls come on the thread that runs the command; one handler serves
// one session at a time. The order of the operations is part of the interface.
#pragma once

#include <cstdint>
#include <string>

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

}  // namespace dorvo
