// What is announced of jobs, put aside for the thread that waits for their runs.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "base/handle.h"
#include "engine/engine.h"

namespace dorvo::agent {

// What one event says.
struct JobEvent {
    std::string id;
    std::string state;
    uint32_t error = 0;  // an HTTP status with its mark; 0 for an event that is no error
};

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
    // Why the job met its latest error since the last call, and what to do; empty without one.
    std::string takeReason(const JobDefinition& job);

    // Nothing for a text that is no event of a job. Pure.
    static std::optional<JobEvent> read(const std::string& text);

private:
    void hear(const std::string& text);

    KernelHandle event_;                      // auto-reset: something was announced
    std::mutex lock_;                         // guards what follows
    std::map<std::string, uint32_t> errors_;  // by the job's id
    std::set<std::string> removed_;
    bool ended_ = false;
    std::unique_ptr<Engine::Subscription> subscription_;  // the last: it ends before the rest
};

}  // namespace dorvo::agent
