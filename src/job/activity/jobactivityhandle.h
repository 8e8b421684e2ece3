// A job's activity record: its file "info", mapped under a name that every process can open.
//
// Writable in the job's own process (one at a time), read-only anywhere else. The handle owns file,
// mapping and view. Operations are the owner's; the mapped record itself is shared memory. Every
// failure is logged and gives false with the thread's last error.
#pragma once

#include "base/api.h"
#include "base/handle.h"
#include "job/activity/jobactivity.h"

namespace dorvo {

class DORVO_JOB_API JobActivityHandle {
public:
    JobActivityHandle() = default;

    // Writable: makes the record when the file is new; the job's directory must exist. A file whose
    // layout is unknown stays mapped and untouched, and the result is false. Read-only: false when
    // no process has the record mapped. Closes what the handle held before.
    bool open(const char* id, bool writable);
    // The record must be mapped writable. See JobActivity::reset.
    void reset(int32_t state, bool full);
    // Flushes the record to its file; false when nothing is mapped.
    bool sync();
    void close();

    // The mapped record, null when there is none. Valid until close().
    JobActivity* get() const { return static_cast<JobActivity*>(view_.get()); }
    JobActivity* operator->() const { return get(); }

    // Copies a job's record as it is now, whether a process has it mapped or not. False, and no log
    // line, when there is none or its layout is unknown (ERROR_INVALID_DATA).
    static bool read(const char* id, JobActivity& record);

private:
    bool openWritable(const char* id, const wchar_t* name);
    bool openShared(const wchar_t* name);

    FileHandle file_;
    KernelHandle mapping_;
    MappedView view_;
};

}  // namespace dorvo
