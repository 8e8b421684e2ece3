// What a service tells the service manager of itself.
//
// While it starts or stops, a thread shows the manager every second that it still does. Any thread.
#pragma once

#include <windows.h>

#include <mutex>

#include "base/handle.h"

namespace dorvo::agent {

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

}  // namespace dorvo::agent
