#include "data/schedules.h"

#include <cstdio>

#include "job/jobplanner.h"

namespace dorvo::agent {
namespace {

std::string clockText(const JobSchedule& schedule) {
    std::array<char, 8> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "%02d:%02d", schedule.hour % 100,
                                    schedule.minute % 100));
    return text.data();
}

// A completion that lies further ahead is of a clock that was wrong.
constexpr int64_t day = 86'400;

// The zone of another clock at a time of its own.
class ClockAt : public ScheduleClock {
public:
    ClockAt(const ScheduleClock& zone, int64_t now) : zone_(zone), now_(now) {}

    int64_t now() const override { return now_; }
    bool local(int64_t instant, std::tm& parts) const override {
        return zone_.local(instant, parts);
    }
    int64_t instant(std::tm parts) const override { return zone_.instant(parts); }

private:
    const ScheduleClock& zone_;
    int64_t now_;
};

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

bool isOverdue(const JobSchedule& schedule, std::optional<int64_t> completed,
               const ScheduleClock& clock) {
    const auto today = makeScheduleHelper(schedule, clock);
    if (!today) {
        return false;
    }
    const bool known = completed && *completed - clock.now() < day;
    const int64_t from = known ? *completed : today->startTime() - 1;
    if (from < 0) {
        return false;
    }
    const ClockAt then(clock, from);
    const auto helper = makeScheduleHelper(schedule, then);
    const int64_t first = helper->TimeOfNextScheduleImpl(0);
    const int64_t second = first == -1 ? -1 : helper->TimeOfNextScheduleImpl(first);
    return second != -1 && second <= clock.now();
}

int64_t nextDue(const JobSchedule& schedule, const ScheduleClock& clock) {
    const auto helper = makeScheduleHelper(schedule, clock);
    return helper ? helper->TimeOfNextScheduleImpl(0) : -1;
}

}  // namespace dorvo::agent
