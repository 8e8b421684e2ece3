// When a backup job starts by itself, as the command line says it: --daily HH:MM, --weekly DAY
// HH:MM, --monthly D HH:MM, or --no-schedule.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "command.h"
#include "jobdef/jobschedule.h"
#include "json_spirit/json_spirit.h"

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

// "every day at 02:00", "every Monday at 02:00", "every month on day 31 at 02:00", "once", "by
// hand".
std::string scheduleText(const JobSchedule& schedule);

// {"kind", "day", "time"}: what the kind does not have is left out.
json_spirit::Ordered_object scheduleJson(const JobSchedule& schedule);

}  // namespace dorvo::agent
