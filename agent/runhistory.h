// The runs of a job as its history folder keeps them. Changes nothing.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace dorvo::agent {

struct FailedItem {
    std::string path;  // with backslashes
    uint32_t code = 0;
    std::string reason;

    // "C:\data\a.txt: Access denied (error 5)"
    std::string text() const;
};

struct PastRun {
    std::string instanceId;
    std::string startTime;  // UTC
    std::string endTime;
    std::string state;
    uint64_t files = 0;
    uint64_t totalSize = 0;
    uint64_t bytesPerSecond = 0;
    std::vector<FailedItem> failed;
};

// The newest runs first, at most `most`. What is damaged in a document counts as empty.
std::vector<PastRun> loadRuns(const std::string& jobId, size_t most);

// The items that failed in one run.
std::vector<FailedItem> loadFailedItems(const std::string& jobId, const std::string& instanceId);

}  // namespace dorvo::agent
