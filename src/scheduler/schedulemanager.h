// The timers of scheduled jobs: at most one a job.
//
// A timer that has fired is not armed again by the manager; the job does so by scheduling itself.
// Any thread, also one that holds the job manager's lock; not a timer handler. Every failure is
// logged and gives false.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "base/critical_section.h"
#include "base/singleton.h"
#include "scheduler/io_completion_port_ex.h"
#include "scheduler/scheduleclock.h"
#include "scheduler/timer_heap.h"

namespace dorvo {

// Takes a command for a job. Called under the timer dispatcher's lock: it neither blocks nor takes
// a lock under which timers are scheduled.
using ScheduleCommands = void (*)(const std::string& jobId, const char* command);

// The timer of one scheduled job.
//
// When it fires, "start" for the job goes to where commands go; after a change of the clock it is
// "do_schedule", so that the job plans its next run anew. It never arms itself.
class ScheduleHandler : public Timeout_Handler {
public:
    // Without `commands` nothing is started. A handler with an empty id does nothing.
    ScheduleHandler(std::string jobId, ScheduleCommands commands)
        : jobId_(std::move(jobId)), commands_(commands) {}

    void handle_timeout(uint64_t arg) override;

private:
    std::string jobId_;
    ScheduleCommands commands_;
};

class ScheduleManagerImpl {
public:
    using DispatcherSource = Io_Completion_Port_Ex* (*)();

    // On the process's timer dispatcher and the system's clock.
    ScheduleManagerImpl();
    ScheduleManagerImpl(DispatcherSource dispatcher, const ScheduleClock& clock);
    // Cancels nothing: stop() comes before, or the process ends.
    virtual ~ScheduleManagerImpl();
    ScheduleManagerImpl(const ScheduleManagerImpl&) = delete;
    ScheduleManagerImpl& operator=(const ScheduleManagerImpl&) = delete;

    // Where the handlers made from now on put their commands.
    void commands(ScheduleCommands commands);

    // Has "start" for the job put into the commands at an instant (seconds since 1970), which may
    // have passed. Takes the place of what was scheduled for the job.
    bool Schedule(int64_t time, const std::string& jobId);
    // Arms the timer of a job that has one; by the handler: one that is this manager's.
    bool Reschedule(int64_t time, const std::string& jobId);
    bool Reschedule(int64_t time, ScheduleHandler* pHandler);
    // Takes the job off the schedule. False when it is not on it.
    bool Unschedule(const std::string& jobId);
    // The job's handler, null when it has none. Stays the manager's.
    ScheduleHandler* FindSchedule(const std::string& jobId);

    // Takes all jobs off the schedule, for good: later calls do nothing and are true. Idempotent.
    void stop();

private:
    using Schedules = std::map<std::string, std::unique_ptr<ScheduleHandler>>;

    bool deadlineOf(int64_t time, uint64_t& deadline) const;
    bool ScheduleImpl(uint64_t deadline, const std::string& jobId);
    bool RescheduleImpl(uint64_t deadline, const std::string& jobId);
    bool RescheduleHandlerImpl(uint64_t deadline, ScheduleHandler* pHandler);
    bool UnscheduleImpl(const std::string& jobId);
    Schedules::iterator FindSchedule(int32_t timerId);

    DispatcherSource dispatcher_;
    const ScheduleClock& clock_;
    CriticalSection lock_;  // guards what follows; the dispatcher's lock comes after it
    Schedules schedules_;
    ScheduleCommands commands_ = nullptr;
    bool stopped_ = false;
};

}  // namespace dorvo

extern template class ATL::CComSingleton<dorvo::ScheduleManagerImpl, ATL::CComAutoCriticalSection>;
