#include "runfollow.h"

#include <array>

#include "base/text.h"
#include "runoutcome.h"

namespace dorvo::agent {
namespace {

constexpr DWORD redrawMs = 500;

}  // namespace

bool RunFollower::look(uint64_t nowMs) {
    // Asked before the record is read, which then shows what has become of the run.
    const bool ended = events_.ended();
    const bool removed = events_.removed(job_.id());
    if (std::string reason = events_.takeReason(job_); !reason.empty()) {
        reporter_.reason(std::move(reason));
    }
    const RecordLook seen = lookAtRecord(job_.id(), end_.record);
    if (seen != RecordLook::none && !removed) {
        if (const auto outcome = outcomeOf(end_.record)) {
            end_.code = *outcome;
            reporter_.finish(loadResult(job_, end_.record, *outcome));
            return true;
        }
    }
    end_.lost = loss(seen, ended, removed);
    if (!end_.lost.empty()) {
        end_.code = exitStopped;
        return true;
    }
    if (seen != RecordLook::none) {
        reporter_.show(end_.record, nowMs);
    }
    return false;
}

// A record that nobody has mapped may be one of a process that is just opening or closing the job;
// that the process is gone is announced, where announcements come.
std::string RunFollower::loss(RecordLook seen, bool ended, bool removed) const {
    const std::string name = toUtf8(job_.name());
    if (removed) {
        return "The job '" + name + "' has been removed with its run";
    }
    if (ended) {
        return "The resident agent has ended: the run of job '" + name +
               "' goes on when the agent starts again";
    }
    if (!events_.hears() && seen != RecordLook::mapped) {
        return "The process that ran the job '" + name +
               "' has ended: go on with 'agent resume \"" + name + "\"'";
    }
    return {};
}

RunEnd RunFollower::follow(HANDLE interrupt, const std::function<bool()>& interrupted) {
    const std::array<HANDLE, 2> wakers = {events_.event(), interrupt};
    while (!look(GetTickCount64())) {
        const DWORD woken = WaitForMultipleObjects(static_cast<DWORD>(wakers.size()), wakers.data(),
                                                   FALSE, redrawMs);
        if (woken == WAIT_OBJECT_0 + 1 && !interrupted()) {
            end_.code = exitStopped;
            end_.lost = "The run of job '" + toUtf8(job_.name()) + "' goes on";
            break;
        }
    }
    return end_;
}

}  // namespace dorvo::agent
