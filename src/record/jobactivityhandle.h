// A job's activity record: its file "info", mapped in the job's own process, and a copy of it under
// a name that every process can open.
//
// Writable in the job's own process (one at a time), read-only anywhere else. Any program of the
// machine may write into the copy; nothing is ever read from it but by those who ask for a job's
// status. The handle owns files, mappings and views. Operations are the owner's, but for publish().
// Every failure is logged and gives false with the thread's last error.
#pragma once

#include "base/api.h"
#include "base/handle.h"
#include "record/jobactivity.h"

namespace dorvo {

class DORVO_JOB_API JobActivityHandle {
public:
    JobActivityHandle() = default;

    // Writable: makes the record when the file is new or blank; the job's directory must exist. A
    // file whose layout is unknown stays mapped and untouched, and the result is false. A copy that
    // cannot be shared is no failure. Read-only, the copy: false when no process has the record
    // mapped. Closes what the handle held before.
    bool open(const char* id, bool writable);
    // The record must be mapped writable. See JobActivity::reset.
    void reset(int32_t state, bool full);
    // Flushes the record to its file, and publishes it; false when nothing is mapped.
    bool sync();
    // Brings the copy up to date. Any thread, while the handle is open.
    void publish();
    void close();

    // The record, or its copy; null when there is none. Valid until close().
    JobActivity* get() const { return static_cast<JobActivity*>(view_.get()); }
    JobActivity* operator->() const { return get(); }

    // Copies a job's record as it is now, whether a process has it mapped or not. False, and no log
    // line, when there is none or its layout is unknown (ERROR_INVALID_DATA).
    static bool read(const char* id, JobActivity& record);

private:
    bool openWritable(const char* id);
    bool openCopy(const char* id);
    bool map(const char* id);
    void share(const char* id);

    FileHandle file_;
    KernelHandle mapping_;  // of the file; read-only, of the copy
    MappedView view_;
    KernelHandle sharedMapping_;  // the copy
    MappedView shared_;
};

}  // namespace dorvo
