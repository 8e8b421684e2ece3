// Resumes a job some time after an error made it pause itself.
//
// When the time has come, "resume" for the job goes into the command queue, and again after each
// further delay until the timer goes: a command may be replaced in the queue, or refused while the
// job is locked. A change of the clock starts the delay anew. Used by one thread at a time; the
// destructor disarms and waits for a call in progress. Never armed or destroyed under a lock that a
// timer handler takes.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "scheduler/timer_heap.h"

namespace dorvo {

class ErrorResumeTimer final : public Timeout_Handler {
public:
    static constexpr uint64_t firstDelayMs = 30'000;

    explicit ErrorResumeTimer(std::string jobId) : jobId_(std::move(jobId)) {}
    ~ErrorResumeTimer() override;

    // The delay from the next start of it on, instead of the first.
    void delay(uint64_t milliseconds) { delayMs_ = milliseconds; }
    // Starts the delay. False, with a log line and the thread's last error, when the dispatcher
    // could not be told; the timer then fires when something else wakes it.
    bool arm();

    void handle_timeout(uint64_t arg) override;

private:
    std::string jobId_;
    std::atomic<uint64_t> delayMs_ = firstDelayMs;
};

}  // namespace dorvo
