#include "text/interrupt.h"

#include "text/agenterror.h"

namespace dorvo::agent {

std::atomic<Interrupt*> Interrupt::current_{nullptr};

Interrupt::Interrupt(Reset reset)
    : event_(CreateEventW(nullptr, reset == Reset::manual, FALSE, nullptr)) {
    current_ = this;
    SetConsoleCtrlHandler(&Interrupt::handle, TRUE);
}

Interrupt::~Interrupt() {
    SetConsoleCtrlHandler(&Interrupt::handle, FALSE);
    current_ = nullptr;
}

BOOL Interrupt::handle(DWORD signal) {
    Interrupt* const self = current_;
    if (self == nullptr) {
        return FALSE;
    }
    if (signal == CTRL_C_EVENT || signal == CTRL_BREAK_EVENT) {
        if (self->asked_.fetch_add(1) > 0) {
            TerminateProcess(GetCurrentProcess(), exitStopped);
        }
        SetEvent(self->event());
        return TRUE;
    }
    SetEvent(self->event());
    // The process is ended as soon as this returns.
    WaitForSingleObject(GetCurrentThread(), INFINITE);
    return TRUE;
}

}  // namespace dorvo::agent
