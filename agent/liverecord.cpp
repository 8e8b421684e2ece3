#include "liverecord.h"

#include "job/activity/jobactivityhandle.h"

namespace dorvo::agent {

RecordLook lookAtRecord(const std::string& jobId, JobActivity& record) {
    JobActivityHandle shared;
    if (shared.open(jobId.c_str(), false) && shared->recognised()) {
        record = *shared.get();
        return RecordLook::mapped;
    }
    return JobActivityHandle::read(jobId.c_str(), record) ? RecordLook::onDisk : RecordLook::none;
}

}  // namespace dorvo::agent
