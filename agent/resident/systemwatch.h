// Has the timers planned again when the system's clock or time zone has changed, or it has woken
// from sleep.
//
// A thread of its own with a hidden window, to which the system announces changes of the clock and
// the wake, and a watch over the registry key of the time zone. A service gets no such messages:
// its controls come by serviceControl(). Lives between the opening and the closing of the module.
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
    // may have changed. Pure.
    static bool changesTime(UINT message, WPARAM parameter);
    static bool controlChangesTime(DWORD control, DWORD eventType);

private:
    static DWORD WINAPI body(void* self);
    void watch() const;

    KernelHandle stop_;
    KernelHandle thread_;
};

}  // namespace dorvo::agent
