// The one timer dispatcher of the process, and the host's hold on it.
#pragma once

#include "base/api.h"
#include "base/singleton.h"
#include "scheduler/io_completion_port_ex.h"

namespace dorvo {

// Making it opens no port and starts no thread; its host does both and closes it before the process
// ends (IocpDispatherWrapper).
class Iocp_Dispatcher : public Io_Completion_Port_Ex {
public:
    static Iocp_Dispatcher* instance();
};

// The host's hold on the timer dispatcher of the process.
//
// Order: open, activate, everything that uses timers or notifications, close. Every operation gives
// false with the thread's last error.
class DORVO_JOB_API IocpDispatherWrapper {
public:
    // Makes the completion port.
    static bool open();
    // Starts the worker thread.
    static bool activate();
    // Delivers what was posted, ends and joins the worker, closes the port. Not from a timer
    // handler or an observer. Idempotent.
    static bool close();
    // Blocks until the worker has ended.
    static bool wait();
    // To be called when the system's clock or time zone has changed: pending timers are planned
    // again against the new time.
    static bool notifyTimeChange();
    // To be called when the machine has woken from sleep: what has come due is fired, the rest
    // waits on.
    static bool notifyWake();
};

}  // namespace dorvo

extern template class ATL::CComSingleton<dorvo::Iocp_Dispatcher, ATL::CComAutoCriticalSection>;
