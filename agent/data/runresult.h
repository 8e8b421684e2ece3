// How a run ended and what it did.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "data/runhistory.h"
#include "jobdef/jobdefinition.h"
#include "json_spirit/json_spirit.h"
#include "record/jobactivity.h"
#include "storage/items.h"
#include "text/exitcode.h"

namespace dorvo::agent {

struct RunResult {
    ExitCode outcome = exitDone;
    std::string state;
    std::string instanceId;
    int percent = 0;
    uint64_t files = 0;           // done: sent, stored or restored
    uint64_t unchangedFiles = 0;  // of a backup
    uint64_t bytes = 0;
    uint64_t unchangedBytes = 0;  // the same
    uint64_t keptFiles = 0;       // of a restore: what was there and stayed
    uint64_t keptBytes = 0;
    uint64_t wireBytes = 0;
    uint64_t bytesPerSecond = 0;
    uint64_t seconds = 0;
    uint32_t failedItems = 0;
    std::vector<FailedItem> failed;
    RunNotes notes;
    uint32_t error = 0;  // that the run ended with, 0 for none
};

// The id of the run that the record tells of.
std::string instanceOf(const JobActivity& record);

// What the record does not tell of a run.
struct RunCounts {
    bool restores = false;
    uint32_t walkedFiles = 0;  // that a backup has looked at
    SourceTotals failed = {};  // of the source list
};

// Pure.
RunResult resultOf(const JobActivity& record, ExitCode outcome, const RunCounts& counts,
                   std::vector<FailedItem> failed);

// The same with what the job's folder tells of its last run.
RunResult loadResult(const JobDefinition& job, const JobActivity& record, ExitCode outcome);

// {"state", "exitCode", "instanceId", "files", "bytes", "unchangedFiles", "unchangedBytes",
// "wireBytes", "speed", "duration", "failed", "leftOut", "warnings"}, of a restore "keptFiles" and
// "keptBytes", and, when it failed, "error".
json_spirit::Ordered_object resultJson(const RunResult& result, const JobDefinition& job);

}  // namespace dorvo::agent
