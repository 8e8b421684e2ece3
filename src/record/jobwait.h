// Until when a job that has paused itself waits: the file `act\waits` in its directory, for whoever
// shows jobs.
//
// It counts only while the job's state says that it waits; nothing of a run depends on it. Times
// are FILETIMEs of UTC.
#pragma once

#include <cstdint>
#include <string>

#include "base/api.h"

namespace dorvo {

// False with the last error.
DORVO_JOB_API bool saveWait(const std::string& jobId, uint64_t until);

// 0 when it is not known.
DORVO_JOB_API uint64_t loadWait(const std::string& jobId);

}  // namespace dorvo
