#include "source/speedcalc.h"

#include <utility>

#include "base/local_time.h"
#include "record/jobactivity.h"
#include "scheduler/iocp_dispatcher.h"

namespace dorvo {
namespace {

constexpr uint64_t interval = 2 * ticksPerSecond;

}  // namespace

SpeedCalc::SpeedCalc(JobActivity& activity, std::function<void()> changed)
    : activity_(activity), changed_(std::move(changed)), lastTick_(localTimeNow()) {
    arm();
}

SpeedCalc::~SpeedCalc() {
    Iocp_Dispatcher::instance()->cancel_timer(this);
    addSlice();
}

void SpeedCalc::handle_timeout(uint64_t arg) {
    if (arg == clockChanged) {
        arm();
    }
    addSlice();
    arm();
}

void SpeedCalc::arm() {
    Iocp_Dispatcher::instance()->cancel_timer(this);
    Iocp_Dispatcher::instance()->schedule_timer(this, localTimeNow() + interval);
}

void SpeedCalc::addSlice() {
    const uint64_t now = localTimeNow();
    const uint64_t taken = lastTick_ - now;  // by a clock that was set back
    if (now >= lastTick_) {
        activity_.usedTime += now - lastTick_;
    } else {
        activity_.usedTime -= activity_.usedTime < taken ? activity_.usedTime : taken;
    }
    lastTick_ = now;
    if (changed_) {
        changed_();
    }
}

}  // namespace dorvo
