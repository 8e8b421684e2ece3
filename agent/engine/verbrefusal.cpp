#include "engine/verbrefusal.h"

#include "base/job_state.h"
#include "text/agentlog.h"

namespace dorvo::agent {
namespace {

enum class Phase { none, idle, underWay, pausing, paused, canceling, ended };

Phase phaseOf(int32_t state) {
    switch (static_cast<JobState>(state)) {
        case JobState::idle: return Phase::idle;
        case JobState::starting:
        case JobState::running:
        case JobState::completing: return Phase::underWay;
        case JobState::pausing: return Phase::pausing;
        case JobState::paused: return Phase::paused;
        case JobState::canceling: return Phase::canceling;
        case JobState::completed:
        case JobState::cancelled:
        case JobState::error: return Phase::ended;
        default: return Phase::none;
    }
}

std::string unreadable() {
    return "has no record that can be read, and " + logSaysWhy() +
           ": remove the job with 'agent remove' and define it anew; its backups stay";
}

std::string lacksRun(const char* what, int32_t state) {
    return std::string("has no run to ") + what + ": its state is " + jobStateToString(state);
}

std::string leaving(Phase phase) {
    return phase == Phase::pausing     ? "is just pausing: try again in a moment"
           : phase == Phase::canceling ? "is being cancelled: try again in a moment"
                                       : "";
}

}  // namespace

std::string refusalOf(JobVerb verb, int32_t state) {
    const Phase phase = phaseOf(state);
    if (verb == JobVerb::remove) {
        return {};
    }
    if (phase == Phase::none) {
        return unreadable();
    }
    const bool without = phase == Phase::ended || phase == Phase::idle;
    switch (verb) {
        case JobVerb::start: return leaving(phase);
        case JobVerb::resume:
            return without ? lacksRun("go on with", state) + "; 'agent start' begins a new one"
                           : leaving(phase);
        case JobVerb::pause:  // an idle job is parked
            return phase == Phase::ended       ? lacksRun("pause", state)
                   : phase == Phase::canceling ? leaving(phase)
                                               : std::string();
        case JobVerb::stop: return without ? lacksRun("stop", state) : std::string();
        case JobVerb::remove: break;
    }
    return {};
}

std::string refusalOfDefinition(int32_t state) {
    switch (phaseOf(state)) {
        case Phase::none: return unreadable();
        case Phase::idle:
        case Phase::ended: return {};
        case Phase::paused:
            return "is paused: go on with it ('agent resume') or cancel it ('agent stop') before "
                   "its settings change";
        default: return "is running: its settings can change when the run has ended";
    }
}

}  // namespace dorvo::agent
