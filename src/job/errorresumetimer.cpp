#include "job/errorresumetimer.h"

#include "base/local_time.h"
#include "base/log.h"
#include "job/jobcmdqueue.h"
#include "scheduler/iocp_dispatcher.h"

namespace dorvo {

ErrorResumeTimer::~ErrorResumeTimer() {
    Iocp_Dispatcher::instance()->cancel_timer(this);
}

bool ErrorResumeTimer::arm() {
    Iocp_Dispatcher* dispatcher = Iocp_Dispatcher::instance();
    dispatcher->cancel_timer(this);
    const uint64_t due = localTimeNow() + delayMs_ * ticksPerMillisecond;
    if (dispatcher->schedule_timer(this, due) == -1) {
        return logFailed("Failed to schedule the resume of job {%s}, error-code = %d, %m.\n",
                         jobId_, GetLastError());
    }
    return true;
}

void ErrorResumeTimer::handle_timeout(uint64_t arg) {
    if (arg != clockChanged) {
        JobCmdQueue::instance()->addResumeAfterError(jobId_);
    }
    arm();
}

}  // namespace dorvo
