#include "scheduler/scheduleclock.h"

#include <cstdlib>
#include <ctime>

#include "base/log.h"

namespace dorvo {
namespace {

class SystemScheduleClock : public ScheduleClock {
public:
    SystemScheduleClock() {
        _putenv("TZ=");
        _tzset();
    }

    int64_t now() const override {
        _tzset();  // the zone may have been changed since the runtime last looked
        return _time64(nullptr);
    }
    bool local(int64_t instant, std::tm& parts) const override {
        const __time64_t time = instant;
        return _localtime64_s(&parts, &time) == 0;
    }
    int64_t instant(std::tm parts) const override { return _mktime64(&parts); }
    void chosen(const std::tm& due) const override {
        const FunctionTrace trace("ScheduleHelper::TimeOfNextScheduleImpl", "schedulehelper.cpp");
        log(LogLevel::trace,
            "Next schedule time: month = %d day = %d weekday = %d hour = %d minute = %d\n",
            due.tm_mon + 1, due.tm_mday, due.tm_wday, due.tm_hour, due.tm_min);
    }
};

}  // namespace

const ScheduleClock& systemScheduleClock() {
    static const SystemScheduleClock clock;
    return clock;
}

}  // namespace dorvo
