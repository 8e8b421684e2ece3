#include "resident/service.h"

#include <windows.h>

#include "base/handle.h"
#include "base/paths.h"
#include "base/private_access.h"
#include "base/text.h"
#include "text/agenterror.h"
#include "text/agentlog.h"
#include "text/failuretext.h"

namespace dorvo::agent {
namespace {

constexpr DWORD restartDelayMs = 60'000;
constexpr DWORD failuresForgottenAfterSeconds = 86'400;
// What the system waits at its own end for runs to pause.
constexpr DWORD shutdownPatienceMs = 180'000;

struct ServiceHandlePolicy {
    using value_type = SC_HANDLE;
    static value_type invalid() { return nullptr; }
    static void close(value_type value) { CloseServiceHandle(value); }
};
using ServiceHandle = UniqueHandle<ServiceHandlePolicy>;

[[noreturn]] void refuse(const char* what, DWORD error) {
    const std::string subject = std::string("The service could not be ") + what + ": ";
    switch (error) {
        case ERROR_ACCESS_DENIED:
            throw AgentError(subject +
                             "only an administrator may; run the command again in a console that "
                             "was opened as administrator");
        case ERROR_SERVICE_DOES_NOT_EXIST:
            throw AgentError("The service is not installed: run 'agent service install' first");
        case ERROR_SERVICE_EXISTS:
            throw AgentError(
                "The service is installed already: run 'agent service uninstall' "
                "before it is installed anew");
        case ERROR_SERVICE_MARKED_FOR_DELETE:
            throw AgentError(subject +
                             "its removal is not finished; close the programs that show services, "
                             "and try again");
        case ERROR_SERVICE_DISABLED:
            throw AgentError(subject +
                             "it is disabled; set its start type in the system's list of "
                             "services");
        default: throw AgentError(subject + failureText(error));
    }
}

ServiceHandle openManager(const char* what, DWORD access) {
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, access));
    if (!manager) {
        refuse(what, GetLastError());
    }
    return manager;
}

ServiceHandle openService(const char* what, DWORD access) {
    const ServiceHandle manager = openManager(what, SC_MANAGER_CONNECT);
    ServiceHandle service(OpenServiceW(manager.get(), Service::name, access));
    if (!service) {
        refuse(what, GetLastError());
    }
    return service;
}

SERVICE_STATUS_PROCESS queryStatus(SC_HANDLE service) {
    SERVICE_STATUS_PROCESS status{};
    DWORD size = 0;
    if (QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                             sizeof(status), &size) == 0) {
        refuse("asked", GetLastError());
    }
    return status;
}

// Waits until the service has stopped, or, when that is asked, until it runs. True when it runs.
bool awaitRest(SC_HANDLE service, bool orRuns) {
    const DWORD mask = orRuns ? SERVICE_NOTIFY_STOPPED | SERVICE_NOTIFY_RUNNING
                              : static_cast<DWORD>(SERVICE_NOTIFY_STOPPED);
    for (;;) {
        const DWORD state = queryStatus(service).dwCurrentState;
        if (state == SERVICE_STOPPED || (orRuns && state == SERVICE_RUNNING)) {
            return state == SERVICE_RUNNING;
        }
        // Calls back as soon as the service is in one of the states, also when it is already.
        SERVICE_NOTIFYW notify{};
        notify.dwVersion = SERVICE_NOTIFY_STATUS_CHANGE;
        notify.pfnNotifyCallback = [](void*) {};
        const DWORD error = NotifyServiceStatusChangeW(service, mask, &notify);
        if (error != ERROR_SUCCESS) {
            refuse("watched", error);
        }
        SleepEx(INFINITE, TRUE);
    }
}

void stopAndWait(SC_HANDLE service) {
    SERVICE_STATUS status{};
    while (ControlService(service, SERVICE_CONTROL_STOP, &status) == 0) {
        const DWORD error = GetLastError();
        if (error == ERROR_SERVICE_NOT_ACTIVE) {
            return;
        }
        if (error != ERROR_SERVICE_CANNOT_ACCEPT_CTRL) {
            refuse("stopped", error);
        }
        // One that stops has been told; one that starts, or has just done so, is told again.
        const DWORD state = queryStatus(service).dwCurrentState;
        if (state == SERVICE_STOP_PENDING ||
            (state == SERVICE_START_PENDING && !awaitRest(service, true))) {
            break;
        }
    }
    awaitRest(service, false);
}

std::wstring commandLine(const std::wstring& arguments) {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length =
            GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (length < path.size()) {
            path.resize(length);
            return path.insert(0, 1, L'"').append(L"\" ").append(arguments);
        }
        path.resize(path.size() * 2);
    }
}

// Whoever can write there can have the service do anything, and whoever can read there has the
// keys. The owner of the folder around it can put another directory in its place.
void protectDataDirectory() {
    constexpr const char* what =
        "installed, the data directory could not be given to the administrators";
    std::wstring directory;
    if (!dataDirectory(directory) || !createDirectories(directory)) {
        refuse(what, GetLastError());
    }
    for (const std::wstring& folder : {directory.substr(0, directory.rfind(L'\\')), directory}) {
        if (isOwnedByOurs(folder)) {
            continue;
        }
        if (const DWORD error = GetLastError(); error != ERROR_SUCCESS) {
            refuse(what, error);
        }
        throw AgentError("The service could not be installed: '" + toUtf8(folder) +
                         "' belongs to another user, who may have put jobs into it; delete it, or "
                         "look through it and make it the administrators' (takeown /a /r /f), and "
                         "try again");
    }
    if (!giveToAdministrators(directory)) {
        refuse(what, GetLastError());
    }
}

// What the system knows nothing of the service does without.
template <class Info>
bool configure(SC_HANDLE service, DWORD level, Info info) {
    return ChangeServiceConfig2W(service, level, &info) != 0 ||
           GetLastError() == ERROR_INVALID_LEVEL;
}

}  // namespace

void Service::install(const std::wstring& arguments) {
    const ServiceHandle manager =
        openManager("installed", SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE);
    protectDataDirectory();
    const ServiceHandle service(CreateServiceW(
        manager.get(), name, L"Dorvo Backup Agent", SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
        SERVICE_AUTO_START, SERVICE_ERROR_NORMAL, commandLine(arguments).c_str(), nullptr, nullptr,
        nullptr, nullptr, nullptr));
    if (!service) {
        refuse("installed", GetLastError());
    }
    std::wstring text = L"Runs the backup and restore jobs of this machine.";
    SC_ACTION restart = {SC_ACTION_RESTART, restartDelayMs};
    const SERVICE_FAILURE_ACTIONSW actions = {.dwResetPeriod = failuresForgottenAfterSeconds,
                                              .lpRebootMsg = nullptr,
                                              .lpCommand = nullptr,
                                              .cActions = 1,
                                              .lpsaActions = &restart};
    const bool configured =
        configure(service.get(), SERVICE_CONFIG_DESCRIPTION, SERVICE_DESCRIPTIONW{text.data()}) &&
        configure(service.get(), SERVICE_CONFIG_DELAYED_AUTO_START_INFO,
                  SERVICE_DELAYED_AUTO_START_INFO{TRUE}) &&
        configure(service.get(), SERVICE_CONFIG_FAILURE_ACTIONS, actions) &&
        // Also when it says itself that it has failed.
        configure(service.get(), SERVICE_CONFIG_FAILURE_ACTIONS_FLAG,
                  SERVICE_FAILURE_ACTIONS_FLAG{TRUE}) &&
        configure(service.get(), SERVICE_CONFIG_PRESHUTDOWN_INFO,
                  SERVICE_PRESHUTDOWN_INFO{shutdownPatienceMs});
    if (!configured) {
        const DWORD error = GetLastError();
        DeleteService(service.get());
        refuse("installed", error);
    }
}

void Service::uninstall() {
    const ServiceHandle service =
        openService("uninstalled", SERVICE_STOP | SERVICE_QUERY_STATUS | DELETE);
    stopAndWait(service.get());
    if (DeleteService(service.get()) == 0) {
        refuse("uninstalled", GetLastError());
    }
}

void Service::start() {
    const ServiceHandle service = openService("started", SERVICE_START | SERVICE_QUERY_STATUS);
    while (StartServiceW(service.get(), 0, nullptr) == 0) {
        const DWORD error = GetLastError();
        if (error != ERROR_SERVICE_ALREADY_RUNNING) {
            refuse("started", error);
        }
        // One that stops counts as running: it is started when it has.
        const DWORD state = queryStatus(service.get()).dwCurrentState;
        if (state != SERVICE_STOP_PENDING && state != SERVICE_STOPPED) {
            break;
        }
        awaitRest(service.get(), false);
    }
    if (!awaitRest(service.get(), true)) {
        throw AgentError("The service has stopped again: " + logSaysWhy() +
                         ", and where it could not be written, 'agent run' in this console does");
    }
}

void Service::stop() {
    const ServiceHandle service = openService("stopped", SERVICE_STOP | SERVICE_QUERY_STATUS);
    stopAndWait(service.get());
}

Service::Status Service::status() {
    const ServiceHandle manager = openManager("asked", SC_MANAGER_CONNECT);
    const ServiceHandle service(OpenServiceW(manager.get(), name, SERVICE_QUERY_STATUS));
    if (!service) {
        const DWORD error = GetLastError();
        if (error == ERROR_SERVICE_DOES_NOT_EXIST) {
            return {.text = "not installed"};
        }
        refuse("asked", error);
    }
    const SERVICE_STATUS_PROCESS status = queryStatus(service.get());
    switch (status.dwCurrentState) {
        case SERVICE_STOPPED: return {.text = "stopped"};
        case SERVICE_START_PENDING: return {.text = "starting", .process = status.dwProcessId};
        case SERVICE_STOP_PENDING: return {.text = "stopping", .process = status.dwProcessId};
        default: return {.text = "running", .process = status.dwProcessId, .running = true};
    }
}

}  // namespace dorvo::agent
