// Starts the agent's updater, "updater.exe" beside the host's executable: a first time some delay
// after it was scheduled, then again and again at an interval (the options "update_start_at" and
// "update_again_at").
//
// The host makes one, schedules it once the timer dispatcher runs, and takes it off before it
// closes the module. Each run is a new process that nobody waits for. Any thread; the object has no
// state of its own that changes. The destructor takes a pending timer off, so the object goes
// before the process's static ones do.
#pragma once

#include <cstdint>

#include "base/api.h"
#include "scheduler/io_completion_port_ex.h"

namespace dorvo {

class DORVO_JOB_API Update_Scheduler : public Io_Completion_Port_Ex::Timeout_Handler {
public:
    // Reads the interval, which stays; on the process's dispatcher.
    Update_Scheduler();
    // On another dispatcher, borrowed.
    explicit Update_Scheduler(Io_Completion_Port_Ex& dispatcher);
    // A copy has the interval and is not scheduled; assignment leaves the own timer as it is.
    Update_Scheduler(const Update_Scheduler& other);
    Update_Scheduler& operator=(const Update_Scheduler& other);
    ~Update_Scheduler() override;

    // Has the updater started after the delay that the options name now; starts the delay anew when
    // it runs already. False, logged, with the thread's last error; nothing is then pending.
    bool schedule();
    // False, logged, when no timer is pending (ERROR_NOT_FOUND).
    bool unschedule();

    // A due timer starts the updater; a change of the clock only starts the interval anew.
    void handle_timeout(uint64_t arg) override;

private:
    bool arm(int64_t delayMs);

    Io_Completion_Port_Ex* dispatcher_;
    int32_t againInterval_;  // milliseconds
};

}  // namespace dorvo
