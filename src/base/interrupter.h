// Tells long operations that the running job has been asked to stop (pause, stop or cancel), and
// hears how far they have come.
//
// The base asks a manual-reset stop event that the job owns and sets from another thread; the event
// is borrowed and must outlive the object. Asking never consumes the signal.
#pragma once

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdint>

namespace dorvo {

class interrupter {
public:
    explicit interrupter(HANDLE stop = nullptr) : stop_(stop) {}
    virtual ~interrupter() = default;

    // True when the job must stop. Any thread; does not block.
    virtual bool interrupted() const {
        const bool stop = stop_ != nullptr && WaitForSingleObject(stop_, 0) == WAIT_OBJECT_0;
        if (stop) {
            said_ = true;
        }
        return stop;
    }

    // A long operation has got so much further, in bytes; before it asks. On its thread.
    virtual void advanced(uint64_t) {}

    // Waits that long, or until the job must stop, which it hears within a second. Any thread.
    virtual void wait(DWORD ms) const {
        constexpr DWORD sliceMs = 1000;
        while (ms != 0 && !interrupted()) {
            const DWORD slice = std::min(ms, sliceMs);
            Sleep(slice);
            ms -= slice;
        }
    }

    // What the error of a failed operation is to the job: 1223 means that it must stop. Where
    // Windows says so of itself, and nobody was told to stop, it is 995.
    DWORD errorOf(DWORD error) const {
        const bool foreign = error == ERROR_CANCELLED && !said_ && !interrupted();
        return foreign ? DWORD{ERROR_OPERATION_ABORTED} : error;
    }

protected:
    // Another piece of work begins: what was said before has nothing to do with its errors. On the
    // thread that works.
    void beginWork() const { said_ = false; }

    HANDLE stop_;  // borrowed, may be null

private:
    // interrupted() has said so in this piece of work, be it over since.
    mutable std::atomic<bool> said_{false};
};

}  // namespace dorvo
