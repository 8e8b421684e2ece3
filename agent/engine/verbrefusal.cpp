#include "engine/verbrefusal.h"

#include "job/statetable.h"
#include "text/agentlog.h"

namespace dorvo::agent {
namespace {

bool isKnown(JobState state) {
    return isRestartable(state) || isUnfinished(state) || isUnderWay(state);
}

std::string unreadable() {
    return "has no record that can be read, and " + logSaysWhy() +
           ": remove the job with 'agent remove' and define it anew; its backups stay";
}

std::string lacksRun(const char* what, JobState state) {
    return std::string("has no run to ") + what + ": its state is " + jobStateToString(state);
}

std::string leaving(JobState state) {
    return state == JobState::pausing     ? "is just pausing: try again in a moment"
           : state == JobState::canceling ? "is being cancelled: try again in a moment"
                                          : "";
}

}  // namespace

std::string refusalOf(JobVerb verb, int32_t recorded) {
    const auto state = static_cast<JobState>(recorded);
    if (verb == JobVerb::remove) {
        return {};
    }
    if (!isKnown(state)) {
        return unreadable();
    }
    const bool without = isRestartable(state);
    switch (verb) {
        case JobVerb::start: return leaving(state);
        case JobVerb::resume:
            return without ? lacksRun("go on with", state) + "; 'agent start' begins a new one"
                           : leaving(state);
        case JobVerb::pause:  // an idle job is parked
            return isFinal(state)                 ? lacksRun("pause", state)
                   : state == JobState::canceling ? leaving(state)
                                                  : std::string();
        case JobVerb::stop: return without ? lacksRun("stop", state) : std::string();
        case JobVerb::remove: break;
    }
    return {};
}

std::string refusalOfDefinition(int32_t recorded) {
    const auto state = static_cast<JobState>(recorded);
    if (!isKnown(state)) {
        return unreadable();
    }
    if (isRestartable(state)) {
        return {};
    }
    return state == JobState::paused
               ? "is paused: go on with it ('agent resume') or cancel it ('agent stop') before its "
                 "settings change"
               : "is running: its settings can change when the run has ended";
}

}  // namespace dorvo::agent
