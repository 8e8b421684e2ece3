#include "text/interrupt.h"

#include "text/agenterror.h"

namespace dorvo::agent {

std::mutex Interrupt::lock_;
Interrupt* Interrupt::current_ = nullptr;

Interrupt::Interrupt(Reset reset)
    : event_(CreateEventW(nullptr, reset == Reset::manual, FALSE, nullptr)) {
    {
        const std::lock_guard guard(lock_);
        current_ = this;
    }
    SetConsoleCtrlHandler(&Interrupt::handle, TRUE);
}

Interrupt::~Interrupt() {
    SetConsoleCtrlHandler(&Interrupt::handle, FALSE);
    const std::lock_guard guard(lock_);
    current_ = nullptr;
}

BOOL Interrupt::handle(DWORD signal) {
    {
        const std::lock_guard guard(lock_);
        if (current_ == nullptr) {
            return FALSE;
        }
        const bool typed = signal == CTRL_C_EVENT || signal == CTRL_BREAK_EVENT;
        if (typed && current_->asked_.fetch_add(1) > 0) {
            TerminateProcess(GetCurrentProcess(), exitStopped);
        }
        SetEvent(current_->event());
        if (typed) {
            return TRUE;
        }
    }
    // The process is ended as soon as this returns.
    WaitForSingleObject(GetCurrentThread(), INFINITE);
    return TRUE;
}

}  // namespace dorvo::agent
