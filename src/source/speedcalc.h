// The running-time clock of a run: adds the elapsed time to the used time of the job's activity
// record, every two seconds and once more at its end.
//
// The record is borrowed and must outlive the object. Slices are added on the dispatcher's thread,
// the last one by the destructor after the timer is gone, so that no two threads ever add. Each
// time those who watch the record are told. Time is the local wall clock, and a clock set back
// takes time away again, but never below zero.
#pragma once

#include <cstdint>
#include <functional>

#include "scheduler/io_completion_port_ex.h"

namespace dorvo {

struct JobActivity;

class SpeedCalc : public Io_Completion_Port_Ex::Timeout_Handler {
public:
    // `changed` is called whenever a slice was added, by whoever added it; it may be empty.
    explicit SpeedCalc(JobActivity& activity, std::function<void()> changed = {});
    ~SpeedCalc() override;
    SpeedCalc(const SpeedCalc&) = delete;
    SpeedCalc& operator=(const SpeedCalc&) = delete;

    void handle_timeout(uint64_t arg) override;

private:
    void arm();
    void addSlice();

    JobActivity& activity_;
    const std::function<void()> changed_;
    uint64_t lastTick_;
};

}  // namespace dorvo
