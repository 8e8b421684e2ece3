// The resident agent: the one process of the machine that runs its jobs and answers commands.
//
// Owns all that runs: the data directory, the log file, the job module with its schedules, the
// update scheduler, the control port, the keeper of the logins and the watch over the system's
// clock. A process runs one resident once. Runs that the end cuts off pause and go on by themselves
// when the next resident starts.
#pragma once

#include <windows.h>

#include <functional>
#include <optional>

#include "engine/dataowner.h"

namespace dorvo::agent {

class Resident {
public:
    struct Listener {
        // Another process has the data directory and is waited for; called again when it is another
        // one. What it throws ends the resident.
        std::function<void(const std::optional<Holder>& holder)> waiting;
        std::function<void()> ready;  // commands can reach it
    };

    // `stop` is borrowed, of manual reset: its signal ends the resident.
    explicit Resident(HANDLE stop) : stop_(stop) {}
    Resident(const Resident&) = delete;
    Resident& operator=(const Resident&) = delete;

    // Runs until the end. Throws AgentError when it cannot run.
    void run(const Listener& listener);

private:
    HANDLE stop_;
};

}  // namespace dorvo::agent
