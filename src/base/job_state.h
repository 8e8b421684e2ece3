// The states of a job, as the activity record stores them and events name them.
#pragma once

#include <cstdint>

#include "base/api.h"

namespace dorvo {

enum class JobState : int32_t {
    none = 0,
    idle = 1,
    starting = 2,
    running = 3,
    completing = 4,
    pausing = 5,
    paused = 6,
    completed = 7,
    canceling = 8,
    cancelled = 9,
    error = 10,
    created = 11,   // notification only: submitted for the first time
    updated = 12,   // notification only: submitted again
    deleted = 13,   // notification only: the job and its directory are gone
    unloaded = 14,  // notification only
};

// The state's text; "none" for a value without one.
DORVO_JOB_API const char* jobStateToString(int state);
inline const char* jobStateToString(JobState state) {
    return jobStateToString(static_cast<int>(state));
}

// The value of the text, compared case by case; 0 for a null, empty or unknown one.
DORVO_JOB_API int jobStateFromString(const char* text);

}  // namespace dorvo
