#include "resident/serviceprocess.h"

#include "base/log.h"
#include "resident/resident.h"
#include "resident/service.h"
#include "resident/systemwatch.h"
#include "text/agenterror.h"
#include "text/agentlog.h"
#include "text/failuretext.h"

namespace dorvo::agent {
namespace {

void logFailure(const std::string& reason) {
    noteInLog(LogLevel::error, "The service ends: " + reason + ".");
}

}  // namespace

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
