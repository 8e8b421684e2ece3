#include "data/runoutcome.h"

#include "job/statetable.h"

namespace dorvo::agent {

std::optional<ExitCode> outcomeOf(const JobActivity& record) {
    switch (static_cast<JobState>(record.state)) {
        case JobState::completed: return record.failedItems == 0 ? exitDone : exitSomeFailed;
        case JobState::cancelled: return exitStopped;
        case JobState::paused:
            return record.pausedManually != 0 ? std::optional(exitStopped) : std::nullopt;
        case JobState::idle:
        case JobState::starting:
        case JobState::running:
        case JobState::completing:
        case JobState::pausing:
        case JobState::canceling: return std::nullopt;
        default: return exitFailed;
    }
}

bool waitsForServer(const JobActivity& record) {
    return static_cast<JobState>(record.state) == JobState::paused && record.pausedManually == 0;
}

bool runsOrWaits(const JobActivity& record) {
    const auto state = static_cast<JobState>(record.state);
    return !outcomeOf(record) && state != JobState::none && state != JobState::idle;
}

bool unfinished(const JobActivity& record) {
    return isUnfinished(static_cast<JobState>(record.state));
}

}  // namespace dorvo::agent
