// The timer of one scheduled job.
//
// When it fires, "start" for the job goes to where commands go; after a change of the clock it is
// "do_schedule", so that the job plans its next run anew. It never arms itself.
#pragma once

#include <string>
#include <utility>

#include "scheduler/timeout_handler.h"

namespace dorvo {

// Takes a command for a job. Called under the timer dispatcher's lock: it neither blocks nor takes
// a lock under which timers are scheduled.
using ScheduleCommands = void (*)(const std::string& jobId, const char* command);

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

}  // namespace dorvo
