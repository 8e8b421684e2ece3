// A job's record as it stands, whoever runs the job.
//
// The record is mapped for the look only: a reader that keeps it mapped would keep the file of a
// job that is removed.
#pragma once

#include "job/activity/jobactivity.h"

namespace dorvo::agent {

enum class RecordLook {
    mapped,  // by the process that has the job
    onDisk,  // no process has the job; the file's
    none,    // there is none that can be read
};

// Copies it; `record` stays for `none`.
RecordLook lookAtRecord(const std::string& jobId, JobActivity& record);

}  // namespace dorvo::agent
