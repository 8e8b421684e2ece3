// Why a run does not go on, since when and until when.
#pragma once

#include <cstdint>
#include <string>

#include "jobdef/jobdefinition.h"
#include "json_spirit/json_spirit.h"
#include "record/jobactivity.h"

namespace dorvo::agent {

// Times are ticks of UTC, 0 for not known.
struct RunWait {
    std::string reason;  // empty: it goes on
    uint64_t since = 0;
    uint64_t until = 0;
};

// Of a run that is paused, interrupted, or waits for a long answer. `live` says whether a process
// has the job.
RunWait waitOf(const JobDefinition& job, const JobActivity& record, bool live);

// When the job's paused run goes on by itself, where that lies ahead.
uint64_t waitsUntil(const std::string& jobId);

// True while the run goes on, but only its service can tell how long it takes.
bool awaitsAnswer(const JobActivity& record);

// "since ...: no way; it goes on by itself at ...".
std::string waitWords(const RunWait& wait);

// "reason", "since", "until".
void appendWait(json_spirit::Ordered_object& json, const RunWait& wait);

}  // namespace dorvo::agent
