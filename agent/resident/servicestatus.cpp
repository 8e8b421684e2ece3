#include "resident/servicestatus.h"

#include "base/thread.h"

namespace dorvo::agent {
namespace {

constexpr DWORD progressMs = 1'000;
constexpr DWORD patienceMs = 20'000;  // for the next sign of life

bool pending(DWORD state) {
    return state == SERVICE_START_PENDING || state == SERVICE_STOP_PENDING;
}

constexpr DWORD acceptedControls = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN |
                                   SERVICE_ACCEPT_PRESHUTDOWN | SERVICE_ACCEPT_TIMECHANGE |
                                   SERVICE_ACCEPT_POWEREVENT;

}  // namespace

ServiceStatus::ServiceStatus() : end_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    status_.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
}

ServiceStatus::~ServiceStatus() {
    SetEvent(end_.get());
    joinThread(thread_);
}

void ServiceStatus::starting(SERVICE_STATUS_HANDLE handle) {
    std::lock_guard guard(lock_);
    handle_ = handle;
    tell(SERVICE_START_PENDING, NO_ERROR);
    startThread(&ServiceStatus::body, this, thread_);  // without it the manager has less patience
}

void ServiceStatus::running() {
    std::lock_guard guard(lock_);
    if (status_.dwCurrentState == SERVICE_START_PENDING) {
        tell(SERVICE_RUNNING, NO_ERROR);
    }
}

void ServiceStatus::stopping() {
    std::lock_guard guard(lock_);
    if (status_.dwCurrentState != SERVICE_STOPPED) {
        tell(SERVICE_STOP_PENDING, NO_ERROR);
    }
}

void ServiceStatus::stopped(bool failed) {
    std::lock_guard guard(lock_);
    tell(SERVICE_STOPPED, failed ? ERROR_SERVICE_SPECIFIC_ERROR : NO_ERROR);
}

DWORD ServiceStatus::body(void* self) {
    static_cast<ServiceStatus*>(self)->showProgress();
    return 0;
}

void ServiceStatus::showProgress() {
    while (WaitForSingleObject(end_.get(), progressMs) == WAIT_TIMEOUT) {
        std::lock_guard guard(lock_);
        if (pending(status_.dwCurrentState)) {
            ++status_.dwCheckPoint;
            SetServiceStatus(handle_, &status_);
        }
    }
}

void ServiceStatus::tell(DWORD state, DWORD exitCode) {
    status_.dwCurrentState = state;
    // Nothing can be stopped before it can end what it has begun.
    status_.dwControlsAccepted = state == SERVICE_RUNNING ? acceptedControls : 0;
    status_.dwWin32ExitCode = exitCode;
    status_.dwServiceSpecificExitCode = exitCode == NO_ERROR ? 0 : 1;
    status_.dwCheckPoint = pending(state) ? 1 : 0;
    status_.dwWaitHint = pending(state) ? patienceMs : 0;
    SetServiceStatus(handle_, &status_);
}

}  // namespace dorvo::agent
