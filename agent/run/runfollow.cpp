#include "run/runfollow.h"

#include <array>

#include "base/job_state.h"
#include "base/text.h"
#include "data/jobstore.h"
#include "data/runrecord.h"
#include "job/statetable.h"
#include "json_spirit/json_spirit.h"

namespace dorvo::agent {
namespace {

constexpr DWORD redrawMs = 500;

// The id of the job that an event says is deleted; empty for any other text.
std::string deletedJob(const std::string& text) {
    try {
        json_spirit::Value value;
        json_spirit::read_or_throw(text, value);
        const json_spirit::Object& event = value.get_obj();
        const bool deleted = json_spirit::object_get_str_or_throw(event, "state") ==
                             jobStateToString(JobState::deleted);
        return deleted ? json_spirit::object_get_str_or_throw(event, "id") : std::string();
    } catch (const json_spirit::Error_position&) {
        return {};
    } catch (const std::runtime_error&) {
        return {};
    }
}

}  // namespace

RunEvents::RunEvents(Engine* engine) : event_(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {
    if (engine != nullptr) {
        subscription_ = engine->subscribe([this](const std::string& text) { hear(text); });
    }
}

void RunEvents::hear(const std::string& text) {
    {
        const std::lock_guard guard(lock_);
        if (text.empty()) {
            ended_ = true;
        } else if (std::string id = deletedJob(text); !id.empty()) {
            removed_.insert(std::move(id));
        }
    }
    SetEvent(event_.get());
}

bool RunEvents::wait(HANDLE interrupt, DWORD timeoutMs) const {
    const std::array<HANDLE, 2> wakers = {interrupt, event_.get()};
    return WaitForMultipleObjects(static_cast<DWORD>(wakers.size()), wakers.data(), FALSE,
                                  timeoutMs) != WAIT_OBJECT_0;
}

bool RunEvents::ended() {
    const std::lock_guard guard(lock_);
    return ended_;
}

bool RunEvents::removed(const std::string& jobId) {
    const std::lock_guard guard(lock_);
    return removed_.contains(jobId);
}

bool RunEvents::awaitRemoved(const std::string& jobId, HANDLE interrupt) {
    while (!removed(jobId) && !ended()) {
        if (!wait(interrupt)) {
            return false;
        }
    }
    return true;
}

bool RunFollower::look(uint64_t nowMs) {
    // Asked before the record is read, which then shows what has become of the run.
    const bool ended = events_.ended();
    const bool removed = events_.removed(job_.id());
    const RecordLook seen = readRecord();
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

// The record of the run that is followed: of one that has ended and after which another has begun
// since the last look, what was seen last, with the end that the history has of it.
RecordLook RunFollower::readRecord() {
    JobActivity& record = end_.record;
    JobActivity now{};
    const RecordLook seen = lookAtRecord(job_.id(), now);
    if (seen == RecordLook::none) {
        return seen;
    }
    if (record.hasInstance() && now.hasInstance() && now.instanceId != record.instanceId) {
        const PastRun past = loadRun(job_.id(), instanceIdOf(record));
        record.state = jobStateFromString(past.state.c_str());
        record.failedItems = static_cast<uint32_t>(past.failed.size());
        record.lastRunTime = now.lastRunTime;
        if (isFinal(static_cast<JobState>(record.state))) {
            return seen;
        }
    }
    record = now;
    return seen;
}

// A record that nobody has mapped may be one of a process that is just opening or closing the job;
// that the process is gone is announced, where announcements come.
std::string RunFollower::loss(RecordLook seen, bool ended, bool removed) const {
    const std::string name = toUtf8(job_.name());
    if (removed || (seen == RecordLook::none && !hasJob(job_.id()))) {
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

RunEnd RunFollower::follow(HANDLE interrupt, const std::function<void()>& interrupted) {
    while (!look(GetTickCount64())) {
        if (!events_.wait(interrupt, redrawMs)) {
            interrupted();
        }
    }
    return end_;
}

WatchedJob::WatchedJob(std::unique_ptr<JobDefinition> job, Terminal& terminal, bool json)
    : job_(std::move(job)), terminal_(terminal), json_(json) {
    lookAtRecord(job_->id(), before_);
}

bool WatchedJob::look(RunEvents& events, uint64_t nowMs) {
    if (!follower_) {
        JobActivity now = before_;
        const bool mapped = lookAtRecord(job_->id(), now) == RecordLook::mapped;
        if (!hasRun(before_, now, mapped)) {
            return false;
        }
        reporter_ = makeRunReporter(terminal_, *job_, json_);
        follower_.emplace(*job_, events, *reporter_);
    }
    if (!follower_->look(nowMs)) {
        return false;
    }
    end_ = follower_->end();
    before_ = end_.record;
    follower_.reset();
    reporter_.reset();
    return true;
}

bool WatchedJob::hasRun(const JobActivity& before, const JobActivity& now, bool mapped) {
    // A new run's record is emptied before its state changes, but for the time of the last one.
    return outcomeOf(now) ? now.lastRunTime != before.lastRunTime : mapped && runsOrWaits(now);
}

}  // namespace dorvo::agent
