// A job's record as it stands, whoever runs the job.
//
// The copy that the job's process shares tells that there is such a process; what it says comes
// from the file, which only the data directory's owner can write.
#pragma once

#include "record/jobactivity.h"

namespace dorvo::agent {

enum class RecordLook {
    mapped,  // by the process that has the job
    onDisk,  // no process has the job; the file's
    none,    // there is none that can be read
};

// Copies it; `record` stays for `none`.
RecordLook lookAtRecord(const std::string& jobId, JobActivity& record);

}  // namespace dorvo::agent
