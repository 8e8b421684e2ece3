#include "job/lifecycle.h"

#include "base/local_time.h"
#include "record/itemprogress.h"

namespace dorvo {

JobState Lifecycle::state() const {
    return activity_.get() == nullptr ? JobState::none : static_cast<JobState>(activity_->state);
}

JobState Lifecycle::pending() const {
    return activity_.get() == nullptr ? JobState::none
                                      : static_cast<JobState>(activity_->pendingState);
}

void Lifecycle::store(JobState state) {
    recordOrder();
    activity_->state = static_cast<int32_t>(state);
    recordOrder();
}

void Lifecycle::move(JobState next, Tell tell) {
    store(next);
    activity_.sync();
    if (tell == Tell::observers) {
        teller_(next);
    }
}

bool Lifecycle::obey(JobCommand command) {
    const PollOutcome outcome = pollCommand(state(), command);
    store(outcome.next);
    activity_->pendingState = 0;
    if (outcome.sync) {
        activity_.sync();
    }
    return outcome.carryOn;
}

void Lifecycle::pend(JobState coming) {
    recordOrder();
    activity_->pendingState = static_cast<int32_t>(coming);
    activity_.sync();
}

void Lifecycle::end(JobState last, uint32_t error) {
    JobActivity& record = *activity_.get();
    record.endError = error;
    record.currentFileState = static_cast<uint32_t>(CurrentFileState::none);
    if (isFinal(last)) {
        record.resuming = 0;
        record.lastRunState = static_cast<int32_t>(last);
        record.lastRunTime = localTimeNow();
    }
    store(last);
    record.pendingState = 0;
    activity_.sync();
}

void Lifecycle::reset() {
    activity_.reset(static_cast<int32_t>(state()), false);
}

void Lifecycle::forget() {
    activity_.reset(static_cast<int32_t>(JobState::idle), true);
    activity_.sync();
}

}  // namespace dorvo
