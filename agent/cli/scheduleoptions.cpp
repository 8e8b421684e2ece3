#include "cli/scheduleoptions.h"

#include <algorithm>
#include <array>

#include "base/text.h"
#include "data/schedules.h"
#include "text/agenterror.h"

namespace dorvo::agent {
namespace {

constexpr size_t shortName = 3;

// A whole number of at most two digits; -1 for anything else.
int32_t smallNumber(const std::string& text) {
    const bool digits =
        !text.empty() && text.size() <= 2 &&
        std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    return digits ? std::stoi(text) : -1;
}

void setTime(JobSchedule& schedule, const std::string& text) {
    const size_t colon = text.find(':');
    schedule.hour = smallNumber(text.substr(0, colon));
    // One digit of minutes may be the first of two.
    const std::string minute = colon == std::string::npos ? "" : text.substr(colon + 1);
    schedule.minute = minute.size() == 2 ? smallNumber(minute) : -1;
    if (schedule.hour < 0 || schedule.hour > 23 || schedule.minute < 0 || schedule.minute > 59) {
        throw AgentError("'" + text + "' is no time of the day: it has the form HH:MM", exitUsage);
    }
}

int32_t weekday(const std::string& text) {
    for (size_t i = 0; i < weekdays.size(); ++i) {
        const std::string name = weekdays.at(i);
        if (equalsIgnoreCase(text, name) || equalsIgnoreCase(text, name.substr(0, shortName))) {
            return static_cast<int32_t>(i);
        }
    }
    throw AgentError("'" + text +
                         "' is no day of the week: it is one of mon, tue, wed, thu, fri, "
                         "sat, sun",
                     exitUsage);
}

int32_t monthday(const std::string& text) {
    const int32_t day = smallNumber(text);
    if (day < 1 || day > 31) {
        throw AgentError("'" + text + "' is no day of a month: it is 1 to 31", exitUsage);
    }
    return day;
}

}  // namespace

void ScheduleOptions::describe(CLI::App& command) {
    auto* const daily =
        command.add_option("--daily", daily_, "Run it every day at that time")->type_name("HH:MM");
    auto* const weekly =
        command.add_option("--weekly", weekly_, "Every week on that day (mon, tue, ...)")
            ->type_name("DAY HH:MM");
    auto* const monthly =
        command.add_option("--monthly", monthly_, "Every month on that day, or its last")
            ->type_name("D HH:MM");
    for (CLI::Option* const two : {weekly, monthly}) {
        two->type_size(2)->expected(1)->allow_extra_args(false);  // what follows are paths
    }
    auto* const none = command.add_flag("--no-schedule", none_, "Run it by hand only, from now on");
    const std::array<CLI::Option*, 4> all = {daily, weekly, monthly, none};
    for (CLI::Option* const option : all) {
        for (CLI::Option* const other : all) {
            if (option != other) {
                option->excludes(other);
            }
        }
    }
}

JobSchedule ScheduleOptions::read(const JobSchedule& known, uint64_t start) const {
    JobSchedule asked{.start = known.start};
    if (!daily_.empty()) {
        asked.kind = ScheduleKind::daily;
        setTime(asked, daily_);
    } else if (!weekly_.empty()) {
        asked.kind = ScheduleKind::weekly;
        asked.day = weekday(weekly_.front());
        setTime(asked, weekly_.back());
    } else if (!monthly_.empty()) {
        asked.kind = ScheduleKind::monthly;
        asked.day = monthday(monthly_.front());
        setTime(asked, monthly_.back());
    }
    if (asked != known) {
        asked.start = asked.kind == ScheduleKind::manual ? 0 : start;
    }
    return asked;
}

}  // namespace dorvo::agent
