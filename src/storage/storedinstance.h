// A backup that a storage holds: what names it, and what lists of backups show of it. Values.
#pragma once

#include <cstdint>
#include <string>

namespace dorvo {

// A run of a backup job.
struct StoredRun {
    std::string machine;
    std::string jobDefinitionId;
    std::string jobInstanceId;
};

// One run of a backup job as its storage lists it. Times are UTC texts; empty means none.
struct StoredInstance {
    std::string machine;
    std::string jobDefinitionId;
    std::string jobInstanceId;
    std::string startTime;
    std::string endTime;
    std::string state;
    uint64_t totalFiles = 0;
    uint64_t totalDirectories = 0;
    uint64_t totalSize = 0;
    uint64_t errors = 0;  // items that failed
    std::string user;     // whose backup it is; empty in a service's lists, which are one user's

    StoredRun run() const { return {machine, jobDefinitionId, jobInstanceId}; }
    bool operator==(const StoredInstance&) const = default;
};

// The state of an instance of which no more can be read.
constexpr const char* damagedInstance = "damaged";

}  // namespace dorvo
