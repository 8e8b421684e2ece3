// Has the timers planned again when the system's clock or time zone has changed, and looked at when
// it has woken from sleep; and ends the resident when the user's session ends.
//
// On a thread of its own a hidden window gets what the system announces of clock, power and
// session, and the registry key of the time zone is watched. A service gets no such messages: its
// controls go to newsOfControl(). A program with windows hears of the session's end in no
// other way, and the system ends it as soon as it has answered: the answer is the destructor's, so
// the watch outlives whatever has to end in order.
#pragma once

#include <windows.h>

#include "base/handle.h"

namespace dorvo::agent {

class SystemWatch {
public:
    // `sessionEnds` is borrowed: an event that is set when the session ends. Throws AgentError when
    // the system gives no thread.
    explicit SystemWatch(HANDLE sessionEnds);
    ~SystemWatch();
    SystemWatch(const SystemWatch&) = delete;
    SystemWatch& operator=(const SystemWatch&) = delete;

    // What a window message, or a service control with its event type, tells of the time. A wake is
    // no change of the clock: what is planned stays, and may have come due. Pure.
    enum class News { none, clockChange, wake };
    static News newsOfMessage(UINT message, WPARAM parameter);
    static News newsOfControl(DWORD control, DWORD eventType);
    // Whether the window message says that the session ends now. Pure.
    static bool messageEndsSession(UINT message, WPARAM parameter);

    // Tells the timers. Any thread.
    static void tell(News news);

private:
    static DWORD WINAPI body(void* self);
    void watch() const;
    static LRESULT CALLBACK handleMessage(HWND window, UINT message, WPARAM parameter,
                                          LPARAM other);

    HANDLE sessionEnds_;
    KernelHandle stop_;  // manual reset
    HANDLE thread_ = nullptr;
};

}  // namespace dorvo::agent
