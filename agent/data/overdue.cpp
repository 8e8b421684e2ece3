#include "data/overdue.h"

#include "job/jobplanner.h"

namespace dorvo::agent {
namespace {

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
