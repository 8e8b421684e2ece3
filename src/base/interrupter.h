// Tells long operations that the running job has been asked to stop (pause, stop or cancel).
//
// The base asks a manual-reset stop event that the job owns and sets from another thread; the event
// is borrowed and must outlive the object. Asking never consumes the signal.
#pragma once

#include <windows.h>

namespace dorvo {

class interrupter {
public:
    explicit interrupter(HANDLE stop = nullptr) : stop_(stop) {}
    virtual ~interrupter() = default;

    // True when the job must stop. Any thread; does not block.
    virtual bool interrupted() const {
        return stop_ != nullptr && WaitForSingleObject(stop_, 0) == WAIT_OBJECT_0;
    }

protected:
    HANDLE stop_;  // borrowed, may be null
};

}  // namespace dorvo
