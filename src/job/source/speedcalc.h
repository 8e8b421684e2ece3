// The running-time clock of a run: adds the elapsed time to the used time of the job's activity
// record, every two seconds and once more at its end.
//
// The record is borrowed and must outlive the object. Slices are added on the dispatcher's thread,
// the last one by the destructor after the timer is gone, so that no two threads ever add. Time is
// the local wall clock, and a clock set back takes time away again, but never below zero.
#pragma once

#include <cstdint>

#include "scheduler/io_completion_port_ex.h"

namespace dorvo {

struct JobActivity;

class SpeedCalc : public Io_Completion_Port_Ex::Timeout_Handler {
public:
    explicit SpeedCalc(JobActivity& activity);
    ~SpeedCalc() override;
    SpeedCalc(const SpeedCalc&) = delete;
    SpeedCalc& operator=(const SpeedCalc&) = delete;

    void handle_timeout(uint64_t arg) override;

private:
    void arm();
    void addSlice();

    JobActivity& activity_;
    uint64_t lastTick_;
};

}  // namespace dorvo
