// An event that one thread sets and another waits for: what tests use instead of time.
#pragma once

#include <windows.h>

#include "base/handle.h"

namespace dorvo::test {

class Signal {
public:
    // Stays set until reset(), unless it is automatic: then one waiter takes it.
    explicit Signal(bool automatic = false)
        : event_(CreateEventW(nullptr, automatic ? FALSE : TRUE, FALSE, nullptr)) {}

    void set() { SetEvent(event_.get()); }
    void reset() { ResetEvent(event_.get()); }
    // False when a minute has passed: something hangs.
    bool wait() const { return WaitForSingleObject(event_.get(), 60'000) == WAIT_OBJECT_0; }
    bool isSet() const { return WaitForSingleObject(event_.get(), 0) == WAIT_OBJECT_0; }
    HANDLE handle() const { return event_.get(); }

private:
    KernelHandle event_;
};

}  // namespace dorvo::test
