// Until when a job that has paused itself waits, and what its service has said of it: the file
// `act\waits` in its directory, for whoever shows jobs.
//
// It counts only while the job's state says that it waits; nothing of a run depends on it. Times
// are FILETIMEs of UTC. One thread writes of a job.
#pragma once

#include <cstdint>
#include <string>

#include "base/api.h"

namespace dorvo {

// False with the last error.
DORVO_JOB_API bool saveWait(const std::string& jobId, uint64_t until);

// 0 when it is not known.
DORVO_JOB_API uint64_t loadWait(const std::string& jobId);

// The service's words to the refusal with that code; empty where it has said nothing.
DORVO_JOB_API bool saveWaitWords(const std::string& jobId, uint32_t code, const std::string& words);
// Empty where the last refusal had another code.
DORVO_JOB_API std::string loadWaitWords(const std::string& jobId, uint32_t code);

}  // namespace dorvo
