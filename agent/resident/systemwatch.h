// Has the timers planned again when the system's clock or time zone has changed, or it has woken
// from sleep.
//
// On a thread of its own a hidden window gets what the system announces of clock and power, and the
// registry key of the time zone is watched. A service gets no such messages: its controls go to
// controlChangesTime(). Lives while the module is open.
#pragma once

#include <windows.h>

#include "base/handle.h"

namespace dorvo::agent {

class SystemWatch {
public:
    // Throws AgentError when the system gives no thread.
    SystemWatch();
    ~SystemWatch();
    SystemWatch(const SystemWatch&) = delete;
    SystemWatch& operator=(const SystemWatch&) = delete;

    // Whether the window message, or the service control with its event type, says that the time
    // may have jumped. Pure.
    static bool messageChangesTime(UINT message, WPARAM parameter);
    static bool controlChangesTime(DWORD control, DWORD eventType);

    // Plans the timers again. Any thread.
    static void timeChanged();

private:
    static DWORD WINAPI body(void* self);
    void watch() const;

    KernelHandle stop_;
    HANDLE thread_ = nullptr;
};

}  // namespace dorvo::agent
