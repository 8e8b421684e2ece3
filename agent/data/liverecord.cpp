#include "data/liverecord.h"

#include "record/jobactivityhandle.h"

namespace dorvo::agent {

RecordLook lookAtRecord(const std::string& jobId, JobActivity& record) {
    JobActivityHandle shared;
    const bool mapped = shared.open(jobId.c_str(), false);
    // Anybody may have written into what is shared: it is believed only where there is no file.
    if (!JobActivityHandle::read(jobId.c_str(), record)) {
        if (!mapped || !shared->recognised()) {
            return RecordLook::none;
        }
        record = *shared.get();
    }
    return mapped ? RecordLook::mapped : RecordLook::onDisk;
}

}  // namespace dorvo::agent
