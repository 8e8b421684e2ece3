// Follows the run of a job, whoever runs it: what is announced of it (RunEvents), the run until it
// is over (RunFollower), and a job whose runs come and go (WatchedJob).
//
// The records are read as they stand; announcements tell when to look. One thread looks; RunEvents
// hears on the engine's.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "base/handle.h"
#include "data/runrecord.h"
#include "engine/engine.h"
#include "jobdef/jobdefinition.h"
#include "run/runreporter.h"

namespace dorvo::agent {

// What is announced of jobs, put aside for the thread that waits for their runs.
class RunEvents {
public:
    // Hears what the engine, which outlives it, announces; without one nothing.
    explicit RunEvents(Engine* engine);

    // Until something is announced, for that long at most. False when `interrupt`, which is
    // borrowed, was signaled.
    bool wait(HANDLE interrupt, DWORD timeoutMs = INFINITE) const;
    // Announcements come, or came until the process that runs the jobs ended.
    bool hears() const { return subscription_ != nullptr; }
    bool ended();
    // The job was removed since this was made.
    bool removed(const std::string& jobId);
    // Until it is, or nobody is left who could announce it. False as wait() is.
    bool awaitRemoved(const std::string& jobId, HANDLE interrupt);

private:
    void hear(const std::string& text);

    KernelHandle event_;  // auto-reset: something was announced
    std::mutex lock_;     // guards what follows
    std::set<std::string> removed_;
    bool ended_ = false;
    std::unique_ptr<Engine::Subscription> subscription_;  // the last: it ends before the rest
};

struct RunEnd {
    ExitCode code = exitDone;
    JobActivity record{};  // as it was seen last
    // Where the run is not over, or its end was not seen: why it is not followed any more. Nothing
    // was then reported of its end.
    std::string lost;
};

// One run, until it is over.
class RunFollower {
public:
    // All are borrowed. `reporter` is shown the record at each announcement and twice a second. The
    // run is that of the first look.
    RunFollower(const JobDefinition& job, RunEvents& events, RunReporter& reporter)
        : job_(job), events_(events), reporter_(reporter) {}

    // One look. True when the run is over or cannot be followed any more; end() is then its end.
    bool look(uint64_t nowMs);
    const RunEnd& end() const { return end_; }

    // Looks until that. Calls `interrupted` whenever the event, which is borrowed, is signaled.
    RunEnd follow(HANDLE interrupt, const std::function<void()>& interrupted);

private:
    RecordLook readRecord();
    std::string loss(RecordLook seen, bool ended, bool removed) const;

    const JobDefinition& job_;
    RunEvents& events_;
    RunReporter& reporter_;
    RunEnd end_;
};

// A job whose runs are watched: notices that one begins, and follows it to its end.
class WatchedJob {
public:
    // The terminal and the events are borrowed. Runs that have ended before are none of its.
    WatchedJob(std::unique_ptr<JobDefinition> job, Terminal& terminal, bool json);

    const JobDefinition& job() const { return *job_; }

    // One look. True once for each run that is over, or cannot be followed any more: end() is then
    // how.
    bool look(RunEvents& events, uint64_t nowMs);
    const RunEnd& end() const { return end_; }
    bool following() const { return follower_.has_value(); }

    // Two looks at a record: whether a run has begun, or has been, between them. `mapped` says
    // whether a process has the job. Pure.
    static bool hasRun(const JobActivity& before, const JobActivity& now, bool mapped);

private:
    std::unique_ptr<JobDefinition> job_;
    Terminal& terminal_;
    bool json_;
    JobActivity before_{};
    std::unique_ptr<RunReporter> reporter_;
    std::optional<RunFollower> follower_;
    RunEnd end_;
};

}  // namespace dorvo::agent
