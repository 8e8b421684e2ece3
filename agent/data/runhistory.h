// The runs of a job as its history folder keeps them. Changes nothing.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "data/runnotes.h"
#include "json_spirit/json_spirit.h"

namespace dorvo::agent {

struct FailedItem {
    std::string path;  // with backslashes
    uint32_t code = 0;
    std::string reason;

    // "C:\data\a.txt: Access denied (error 5)"
    std::string text() const;
    // "Access denied (error 5)"
    std::string why() const;
};

struct PastRun {
    std::string instanceId;
    std::string startTime;  // UTC
    std::string endTime;
    uint64_t seconds = 0;  // from its start to its end, pauses included
    std::string state;
    uint64_t files = 0;
    uint64_t totalSize = 0;
    uint64_t bytesPerSecond = 0;
    std::vector<FailedItem> failed;
    RunNotes notes;
};

// [{"path", "code", "reason"}]
json_spirit::Ordered_array failedJson(const std::vector<FailedItem>& items);

// The newest runs first, at most `most`.
std::vector<PastRun> loadRuns(const std::string& jobId, size_t most);

// One run. What is damaged or missing in its document counts as empty.
PastRun loadRun(const std::string& jobId, const std::string& instanceId);
// When the last run that completed ended, in ticks of UTC; 0 for never.
uint64_t lastCompletion(const std::string& jobId);

// The items that failed in one run.
std::vector<FailedItem> loadFailedItems(const std::string& jobId, const std::string& instanceId);

}  // namespace dorvo::agent
