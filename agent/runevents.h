// What the module announces of one job, put aside for the thread that waits for the run.
//
// Registered with the notification manager while it lives.
#pragma once

#include <mutex>
#include <string>

#include "base/handle.h"
#include "notify/jobnotifyobserver.h"

namespace dorvo::agent {

class RunEvents : public JobNotifyObserver {
public:
    explicit RunEvents(std::string jobId);
    ~RunEvents() override;

    bool deliver(const std::string& text) override;

    // Auto-reset, borrowed: something was announced.
    HANDLE event() const { return event_.get(); }
    // The reason of the latest error since the last call; empty when there was none.
    std::string takeReason();

    // The reason that an event's JSON text gives for an error of the job, in words and number.
    // Empty for any other text. Pure.
    static std::string reasonOf(const std::string& text, const std::string& jobId);

private:
    std::string jobId_;
    KernelHandle event_;
    std::mutex lock_;  // guards reason_
    std::string reason_;
};

}  // namespace dorvo::agent
