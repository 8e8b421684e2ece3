#include "scheduler/update_scheduler.h"

#include <windows.h>

#include <shlwapi.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "base/handle.h"
#include "base/last_error.h"
#include "base/log.h"
#include "scheduler/iocp_dispatcher.h"
#include "settings/options.h"

namespace dorvo {
namespace {

constexpr size_t pathSize = 260;
// For an interval of 0 or less, as only a file edited by hand can hold: the timer would be due
// again at once, for ever.
constexpr int64_t shortestIntervalMs = 120'000;

OptionsImpl& options() {
    return *ATL::CComSingleton<OptionsImpl, ATL::CComAutoCriticalSection>::instance();
}

bool updaterPath(char (&path)[pathSize]) {
    constexpr std::string_view name = "\\updater.exe";
    std::memset(path, 0, sizeof(path));
    const DWORD length = GetModuleFileNameA(nullptr, path, pathSize);
    if (length == 0) {
        return false;
    }
    PathRemoveFileSpecA(path);
    const size_t folder = std::strlen(path);
    // A path that was cut off would name another program.
    if (length >= pathSize || folder + name.size() >= pathSize) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return false;
    }
    *std::copy(name.begin(), name.end(), path + folder) = '\0';
    return true;
}

bool startUpdater() {
    char path[pathSize];
    if (!updaterPath(path)) {
        return false;
    }
    STARTUPINFOA startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    if (CreateProcessA(path, nullptr, nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr,
                       &startup, &started) == 0) {
        return false;
    }
    const KernelHandle process(started.hProcess);
    const KernelHandle thread(started.hThread);
    return true;
}

void logFailure(LogLevel level, LogText<int, std::string> format) {
    const LastErrorGuard keep;
    log(level, format, keep.error(), errorText(keep.error()));
}

}  // namespace

Update_Scheduler::Update_Scheduler() : Update_Scheduler(*Iocp_Dispatcher::instance()) {}

Update_Scheduler::Update_Scheduler(Io_Completion_Port_Ex& dispatcher)
    : dispatcher_(&dispatcher), againInterval_(options().update_again_at()) {}

Update_Scheduler::Update_Scheduler(const Update_Scheduler& other)
    // GCC warns of a copy that leaves its base out.
    : Timeout_Handler(),  // NOLINT(readability-redundant-member-init)
      dispatcher_(other.dispatcher_),
      againInterval_(other.againInterval_) {}

// A timer stays with its dispatcher.
// cppcheck-suppress operatorEqVarError
Update_Scheduler& Update_Scheduler::operator=(const Update_Scheduler& other) {
    if (this != &other) {
        againInterval_ = other.againInterval_;
    }
    return *this;
}

Update_Scheduler::~Update_Scheduler() {
    dispatcher_->cancel_timer(this);
}

bool Update_Scheduler::schedule() {
    dispatcher_->cancel_timer(this);
    if (!arm(options().update_start_at())) {
        logFailure(LogLevel::error, "Failed to schedule the Update_Scheduler.%d, %s.\n");
        return false;
    }
    return true;
}

bool Update_Scheduler::unschedule() {
    SetLastError(ERROR_NOT_FOUND);  // the dispatcher sets none for what was never scheduled
    if (dispatcher_->cancel_timer(this) != 0) {
        logFailure(LogLevel::error, "Failed to unschedule the Update_Scheduler.%d, %s.\n");
        return false;
    }
    return true;
}

bool Update_Scheduler::arm(int64_t delayMs) {
    const auto delay = delayMs * static_cast<int64_t>(ticksPerMillisecond);
    if (dispatcher_->schedule_timer(this, dispatcher_->now() + static_cast<uint64_t>(delay)) >= 0) {
        return true;
    }
    const LastErrorGuard keep;
    dispatcher_->cancel_timer(this);  // it is pending all the same
    return false;
}

void Update_Scheduler::handle_timeout(uint64_t arg) {
    dispatcher_->cancel_timer(this);
    const int64_t interval = againInterval_ > 0 ? againInterval_ : shortestIntervalMs;
    if (arg == clockChanged) {
        log(LogLevel::trace, "Update Scheduler: Reschedule.\n");
    }
    if (!arm(interval)) {
        logFailure(LogLevel::trace, "Failed to re-schedule the updater, error-code = %d, %s\n");
    }
    if (arg != clockChanged && !startUpdater()) {
        logFailure(LogLevel::trace, "Failed to execute the updater, error-code = %d, %s\n");
    }
}

}  // namespace dorvo
