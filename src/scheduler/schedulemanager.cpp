#include "scheduler/schedulemanager.h"

#include <windows.h>

#include <algorithm>
#include <mutex>
#include <utility>

#include "base/log.h"
#include "scheduler/iocp_dispatcher.h"
#include "scheduler/schedulecalendar.h"
#include "scheduler/scheduleclock.h"

template class ATL::CComSingleton<dorvo::ScheduleManagerImpl, ATL::CComAutoCriticalSection>;

namespace dorvo {
namespace {

constexpr const char* traceFile = "..\\scheduler\\ScheduleHandler.cpp";

Io_Completion_Port_Ex* processDispatcher() {
    return Iocp_Dispatcher::instance();
}

// False when the timer is neither cancelled nor gone. One that has fired is gone.
bool cancel(Io_Completion_Port_Ex& dispatcher, ScheduleHandler& handler) {
    SetLastError(ERROR_SUCCESS);  // a handler that was never scheduled leaves none
    return dispatcher.cancel_timer(&handler) == 0 || GetLastError() == ERROR_NOT_FOUND;
}

}  // namespace

void ScheduleHandler::handle_timeout(uint64_t arg) {
    const FunctionTrace trace("ScheduleHandler::handle_timeout", traceFile);
    log(LogLevel::information, "ScheduleHandler::handle_timeout: information - job id %s.\n",
        jobId_);
    if (jobId_.empty() || commands_ == nullptr) {
        return;
    }
    if (arg == clockChanged) {
        commands_(jobId_, "do_schedule");
        return;
    }
    SYSTEMTIME now;
    GetLocalTime(&now);
    log(LogLevel::trace, "Start job at: month = %d day = %d weekday = %d hour = %d minute = %d\n",
        now.wMonth, now.wDay, now.wDayOfWeek, now.wHour, now.wMinute);
    commands_(jobId_, "start");
}

ScheduleManagerImpl::ScheduleManagerImpl()
    : ScheduleManagerImpl(processDispatcher, systemScheduleClock()) {}

ScheduleManagerImpl::ScheduleManagerImpl(DispatcherSource dispatcher, const ScheduleClock& clock)
    : dispatcher_(dispatcher), clock_(clock) {}

ScheduleManagerImpl::~ScheduleManagerImpl() = default;

void ScheduleManagerImpl::commands(ScheduleCommands commands) {
    const std::lock_guard guard(lock_);
    commands_ = commands;
}

bool ScheduleManagerImpl::Schedule(int64_t time, const std::string& jobId) {
    const std::lock_guard guard(lock_);
    uint64_t deadline = 0;
    return stopped_ || (deadlineOf(time, deadline) && ScheduleImpl(deadline, jobId));
}

bool ScheduleManagerImpl::Reschedule(int64_t time, const std::string& jobId) {
    const std::lock_guard guard(lock_);
    uint64_t deadline = 0;
    return stopped_ || (deadlineOf(time, deadline) && RescheduleImpl(deadline, jobId));
}

bool ScheduleManagerImpl::Reschedule(int64_t time, ScheduleHandler* pHandler) {
    const std::lock_guard guard(lock_);
    uint64_t deadline = 0;
    return stopped_ || (deadlineOf(time, deadline) && RescheduleHandlerImpl(deadline, pHandler));
}

bool ScheduleManagerImpl::Unschedule(const std::string& jobId) {
    const std::lock_guard guard(lock_);
    return stopped_ || UnscheduleImpl(jobId);
}

ScheduleHandler* ScheduleManagerImpl::FindSchedule(const std::string& jobId) {
    const std::lock_guard guard(lock_);
    const auto found = schedules_.find(jobId);
    return found == schedules_.end() ? nullptr : found->second.get();
}

void ScheduleManagerImpl::stop() {
    const std::lock_guard guard(lock_);
    stopped_ = true;
    if (Io_Completion_Port_Ex* dispatcher = dispatcher_()) {
        for (const auto& [jobId, handler] : schedules_) {
            cancel(*dispatcher, *handler);
        }
        schedules_.clear();
    }
}

bool ScheduleManagerImpl::deadlineOf(int64_t time, uint64_t& deadline) const {
    deadline = localCount(clock_, time);
    if (deadline == 0) {
        return logFailed(ERROR_INVALID_PARAMETER,
                         "ScheduleManager::Schedule: failure - %Q is no time.\n", time);
    }
    return true;
}

bool ScheduleManagerImpl::ScheduleImpl(uint64_t deadline, const std::string& jobId) {
    const FunctionTrace trace("ScheduleManager::ScheduleImpl", traceFile);
    Io_Completion_Port_Ex* const dispatcher = dispatcher_();
    if (dispatcher == nullptr) {
        return logFailed(
            "ScheduleManager::ScheduleImpl: failure - can't get the instance of "
            "Iocp_Dispatcher.\n");
    }
    if (schedules_.contains(jobId)) {
        log(LogLevel::information,
            "ScheduleManager::ScheduleImpl: warning - the timer handler has already scheduled.\n");
        return RescheduleImpl(deadline, jobId);
    }
    auto handler = std::make_unique<ScheduleHandler>(jobId, commands_);
    if (dispatcher->schedule_timer(handler.get(), deadline) == -1) {
        log(LogLevel::error,
            "ScheduleManager::ScheduleImpl: failure - call Iocp_Dispatcher::schedule_timer "
            "failed. the timer have not scheduled.\n");
        cancel(*dispatcher, *handler);  // it is pending all the same
        return false;
    }
    schedules_[jobId] = std::move(handler);
    return true;
}

bool ScheduleManagerImpl::RescheduleImpl(uint64_t deadline, const std::string& jobId) {
    const FunctionTrace trace("ScheduleManager::RescheduleImpl", traceFile);
    const auto found = schedules_.find(jobId);
    if (found == schedules_.end()) {
        return logFailed(
            "ScheduleManager::RescheduleImpl: failure - can't find the timer_handler from the "
            "list of scheduled timer_handler list.\n");
    }
    if (!found->second) {
        return logFailed(
            "ScheduleManager::RescheduleImpl: failure - the timer_handler will be re-scheduled is "
            "null.\n");
    }
    if (!RescheduleHandlerImpl(deadline, found->second.get())) {
        return logFailed(
            "ScheduleManager::RescheduleImpl: failure - re-schedule the timer failed.\n");
    }
    log(LogLevel::information,
        "ScheduleManager::ScheduleImpl: information - re-schedule the timer successfully.\n");
    return true;
}

bool ScheduleManagerImpl::RescheduleHandlerImpl(uint64_t deadline, ScheduleHandler* pHandler) {
    const FunctionTrace trace("ScheduleManager::RescheduleHandlerImpl", traceFile);
    if (pHandler == nullptr || FindSchedule(pHandler->timer_id()) == schedules_.end()) {
        return logFailed(
            "ScheduleManager::RescheduleHandlerImpl: failure - invalid parameter \"pHandler\".\n");
    }
    Io_Completion_Port_Ex* const dispatcher = dispatcher_();
    if (dispatcher == nullptr) {
        return logFailed(
            "ScheduleManager::RescheduleHandlerImpl: failure - can't get the instance of "
            "Iocp_Dispatcher.\n");
    }
    if (!cancel(*dispatcher, *pHandler)) {
        return logFailed(
            "ScheduleManager::RescheduleHandlerImpl: failure - call Iocp_Dispatcher::cancel_timer "
            "failed.\n");
    }
    if (dispatcher->schedule_timer(pHandler, deadline) == -1) {
        return logFailed(
            "ScheduleManager::RescheduleHandlerImpl: failure - call "
            "Iocp_Dispatcher::schedule_timer failed.\n");
    }
    log(LogLevel::information,
        "ScheduleManager::RescheduleHandlerImpl: information - re-schedule the handler "
        "successfully.\n");
    return true;
}

bool ScheduleManagerImpl::UnscheduleImpl(const std::string& jobId) {
    const FunctionTrace trace("ScheduleManager::UnscheduleImpl", traceFile);
    Io_Completion_Port_Ex* const dispatcher = dispatcher_();
    if (dispatcher == nullptr) {
        return logFailed(
            "ScheduleManager::UnscheduleImpl: failure - can't get the instance of "
            "Iocp_Dispatcher.\n");
    }
    const auto found = schedules_.find(jobId);
    if (found == schedules_.end()) {
        log(LogLevel::information,
            "ScheduleManager::UnscheduleImpl: warning - can't find the timer handler in the "
            "timer-handler list.\n");
        return false;
    }
    if (!found->second) {
        return logFailed(
            "ScheduleManager::UnscheduleImpl: failure - the timer_handler will be un-scheduled is "
            "null.\n");
    }
    if (!cancel(*dispatcher, *found->second)) {
        return logFailed(
            "ScheduleManager::UnscheduleImpl: failure - call Iocp_Dispatcher::cancel_timer "
            "failed.\n");
    }
    schedules_.erase(found);
    log(LogLevel::information,
        "ScheduleManager::UnscheduleImpl: information - cancel the timer handler successfully.");
    return true;
}

ScheduleManagerImpl::Schedules::iterator ScheduleManagerImpl::FindSchedule(int32_t timerId) {
    return std::find_if(schedules_.begin(), schedules_.end(), [&](const auto& schedule) {
        return schedule.second && schedule.second->timer_id() == timerId;
    });
}

}  // namespace dorvo
