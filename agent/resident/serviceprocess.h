// The resident agent as the process that the service manager starts.
//
// Ends cleanly when the manager, or the end of the system, stops it; until its runs have paused it
// keeps the manager waiting.
#pragma once

#include <windows.h>

#include "base/handle.h"
#include "resident/servicestatus.h"

namespace dorvo::agent {

class ServiceProcess {
public:
    ServiceProcess();
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    // Blocks until the service has ended. Throws AgentError when the process was started by anybody
    // but the service manager.
    void run();

private:
    static void WINAPI serviceMain(DWORD count, LPWSTR* arguments);
    static DWORD WINAPI handleControl(DWORD control, DWORD eventType, void* data, void* self);
    void serve();

    static ServiceProcess* current_;  // the manager's entry point gets no context
    KernelHandle stop_;               // manual reset
    ServiceStatus status_;
};

}  // namespace dorvo::agent
