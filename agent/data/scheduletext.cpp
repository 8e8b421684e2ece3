#include "data/scheduletext.h"

#include <cstdio>

namespace dorvo::agent {
namespace {

std::string clockText(const JobSchedule& schedule) {
    std::array<char, 8> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "%02d:%02d", schedule.hour % 100,
                                    schedule.minute % 100));
    return text.data();
}

}  // namespace

std::string scheduleText(const JobSchedule& schedule) {
    const std::string at = " at " + clockText(schedule);
    switch (schedule.kind) {
        case ScheduleKind::daily: return "every day" + at;
        case ScheduleKind::weekly:
            return std::string("every ") + weekdays.at(static_cast<size_t>(schedule.day)) + at;
        case ScheduleKind::monthly:
            return "every month on day " + std::to_string(schedule.day) + at;
        case ScheduleKind::once: return "once";
        case ScheduleKind::manual: break;
    }
    return "by hand";
}

json_spirit::Ordered_object scheduleJson(const JobSchedule& schedule) {
    json_spirit::Ordered_object json;
    switch (schedule.kind) {
        case ScheduleKind::once: return {{"kind", "once"}};
        case ScheduleKind::manual: return {{"kind", "manual"}};
        case ScheduleKind::daily: json = {{"kind", "daily"}}; break;
        case ScheduleKind::weekly:
            json = {{"kind", "weekly"}, {"day", weekdays.at(static_cast<size_t>(schedule.day))}};
            break;
        case ScheduleKind::monthly: json = {{"kind", "monthly"}, {"day", schedule.day}}; break;
    }
    json.push_back({"time", clockText(schedule)});
    return json;
}

}  // namespace dorvo::agent
