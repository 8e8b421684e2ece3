// When a backup job starts by itself, as the command line says it: --daily HH:MM, --weekly DAY
// HH:MM, --monthly D HH:MM, or --no-schedule.
#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <string>
#include <vector>

#include "jobdef/jobschedule.h"

namespace dorvo::agent {

class ScheduleOptions {
public:
    void describe(CLI::App& command);

    bool given() const { return none_ || !daily_.empty() || !weekly_.empty() || !monthly_.empty(); }
    // The schedule that was asked for, from `start` (local) on. `known` stays, with its own start,
    // when it says the same. Throws AgentError (wrong usage).
    JobSchedule read(const JobSchedule& known, uint64_t start) const;

private:
    std::string daily_;
    std::vector<std::string> weekly_;
    std::vector<std::string> monthly_;
    bool none_ = false;
};

}  // namespace dorvo::agent
