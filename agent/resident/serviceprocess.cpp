#include "resident/serviceprocess.h"

#include "base/log.h"
#include "base/thread.h"
#include "resident/resident.h"
#include "resident/service.h"
#include "resident/systemwatch.h"
#include "text/agenterror.h"
#include "text/agentlog.h"
#include "text/failuretext.h"

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

void logFailure(const std::string& reason) {
    noteInLog(LogLevel::error, "The service ends: " + reason + ".");
}

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

ServiceProcess* ServiceProcess::current_ = nullptr;

ServiceProcess::ServiceProcess() : stop_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

void ServiceProcess::run() {
    current_ = this;
    std::wstring name = Service::name;
    const SERVICE_TABLE_ENTRYW table[] = {{name.data(), &ServiceProcess::serviceMain},
                                          {nullptr, nullptr}};
    if (StartServiceCtrlDispatcherW(table) == 0) {
        const DWORD error = GetLastError();
        throw AgentError(error == ERROR_FAILED_SERVICE_CONTROLLER_CONNECT
                             ? "Only the service manager runs this: use 'agent service start'"
                             : "The service manager cannot be reached: " + failureText(error));
    }
}

void ServiceProcess::serviceMain(DWORD, LPWSTR*) {
    current_->serve();
}

DWORD ServiceProcess::handleControl(DWORD control, DWORD eventType, void*, void* self) {
    auto* const service = static_cast<ServiceProcess*>(self);
    switch (control) {
        case SERVICE_CONTROL_STOP:
        case SERVICE_CONTROL_PRESHUTDOWN:
        case SERVICE_CONTROL_SHUTDOWN:
            service->status_.stopping();
            SetEvent(service->stop_.get());
            return NO_ERROR;
        case SERVICE_CONTROL_TIMECHANGE:
        case SERVICE_CONTROL_POWEREVENT:
            if (const auto news = SystemWatch::newsOfControl(control, eventType);
                news != SystemWatch::News::none) {
                SystemWatch::tell(news);
            }
            return NO_ERROR;
        case SERVICE_CONTROL_INTERROGATE: return NO_ERROR;
        default: return ERROR_CALL_NOT_IMPLEMENTED;
    }
}

void ServiceProcess::serve() {
    SERVICE_STATUS_HANDLE handle =
        RegisterServiceCtrlHandlerExW(Service::name, &ServiceProcess::handleControl, this);
    if (handle == nullptr) {
        logFailure(failureText(GetLastError()));
        return;
    }
    status_.starting(handle);
    bool failed = true;
    try {
        // A command may own the data directory for hours: no start takes that long.
        Resident(stop_.get())
            .run({.waiting = [this](const std::optional<Holder>&) { status_.running(); },
                  .ready = [this] { status_.running(); }});
        failed = false;
    } catch (const std::exception& problem) {
        logFailure(problem.what());
    }
    status_.stopped(failed);
}

}  // namespace dorvo::agent
