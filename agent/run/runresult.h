// How a run ended and what it did: as values, as JSON, and as the last line that people read. Pure,
// but for loadResult().
//
// A run's record tells most of it; what it has looked at and what failed stand in the job's folder.
// Sizes are bytes, times seconds.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "data/runhistory.h"
#include "jobdef/jobdefinition.h"
#include "json_spirit/json_spirit.h"
#include "record/jobactivity.h"
#include "storage/items.h"
#include "text/agenterror.h"

namespace dorvo::agent {

// What a run is called and what it does, in the words of the lines that tell of it.
struct RunWords {
    std::string verb;     // "Backup"
    std::string looking;  // "is looking for what has changed": how it begins
    std::string ahead;    // "to send": of the files that lie ahead
    std::string done;     // "sent"
    std::string place;    // "the server": what it waits for when it pauses by itself
    bool viaNetwork = true;
    bool restores = false;
};

RunWords wordsOf(const JobDefinition& job);

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
    std::string said;    // by the service of that
};

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

// Why the run failed; empty where that is not known.
std::string whyFailed(const RunResult& result, const JobDefinition& job);

// {"state", "exitCode", "instanceId", "files", "bytes", "unchangedFiles", "unchangedBytes",
// "wireBytes", "speed", "duration", "failed", "leftOut", "warnings"}, of a restore "keptFiles" and
// "keptBytes", and, when it failed, "error".
json_spirit::Ordered_object resultJson(const RunResult& result, const JobDefinition& job);

// "Backup completed in 1:02 (1.5 MiB/s): 3 files sent (2.0 KiB, 700 B over the network), ...", or
// how it failed or stopped, and what to do then.
std::string runSummary(const JobDefinition& job, const RunResult& result);

}  // namespace dorvo::agent
