// The resident agent as the process that the service manager starts.
//
// Ends cleanly when the manager, or the end of the system, stops it; until its runs have paused it
// keeps the manager waiting.
#pragma once

#include <windows.h>

#include <mutex>

#include "base/handle.h"

namespace dorvo::agent {

// What it tells the service manager of itself. While it starts or stops, a thread shows the manager
// every second that it still does. Any thread.
class ServiceStatus {
public:
    ServiceStatus();
    ~ServiceStatus();
    ServiceStatus(const ServiceStatus&) = delete;
    ServiceStatus& operator=(const ServiceStatus&) = delete;

    // Each call tells a new state, or nothing where a later one has been told.
    void starting(SERVICE_STATUS_HANDLE handle);
    void running();
    void stopping();
    // The last one: the manager may end the process at once. A failure is one for its rules about
    // failed services.
    void stopped(bool failed);

private:
    static DWORD WINAPI body(void* self);
    void showProgress();
    void tell(DWORD state, DWORD exitCode);

    KernelHandle end_;  // manual reset
    std::mutex lock_;   // guards handle_ and status_
    SERVICE_STATUS_HANDLE handle_ = nullptr;
    SERVICE_STATUS status_{};
    HANDLE thread_ = nullptr;
};

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
