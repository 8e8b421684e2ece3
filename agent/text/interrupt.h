// Ctrl+C as an event.
//
// While the object lives, the first Ctrl+C signals the event and the second ends the process at
// once, as paused. Closing the console signals it too and leaves the process the time that the
// system grants. One object at a time.
#pragma once

#include <windows.h>

#include <atomic>
#include <mutex>

#include "base/handle.h"

namespace dorvo::agent {

class Interrupt {
public:
    enum class Reset { automatic, manual };

    explicit Interrupt(Reset reset = Reset::automatic);
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    // Borrowed.
    HANDLE event() const { return event_.get(); }
    // Ctrl+C or Ctrl+Break was among what signaled it.
    bool typed() const { return asked_ > 0; }

private:
    static BOOL WINAPI handle(DWORD signal);

    static std::mutex lock_;  // guards current_, which lives as long as it is held
    static Interrupt* current_;
    KernelHandle event_;
    std::atomic<int> asked_{0};
};

}  // namespace dorvo::agent
