#include "scheduler/schedulehandler.h"

#include <windows.h>

#include "base/log.h"

namespace dorvo {

void ScheduleHandler::handle_timeout(uint64_t arg) {
    const FunctionTrace trace("ScheduleHandler::handle_timeout",
                              "..\\scheduler\\ScheduleHandler.cpp");
    log(LogLevel::information, "ScheduleHandler::handle_timeout: information - job id %s.\n",
        jobId_);
    if (jobId_.empty() || commands_ == nullptr) {
        return;
    }
    if (arg == clockChanged) {
        commands_(jobId_, "do_schedule");
        return;
    }
    SYSTEMTIME now;
    GetLocalTime(&now);
    log(LogLevel::trace, "Start job at: month = %d day = %d weekday = %d hour = %d minute = %d\n",
        now.wMonth, now.wDay, now.wDayOfWeek, now.wHour, now.wMinute);
    commands_(jobId_, "start");
}

}  // namespace dorvo
