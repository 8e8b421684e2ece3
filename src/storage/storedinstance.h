// A backup that a storage holds, as lists of backups show it. A value.
#pragma once

#include <cstdint>
#include <string>

namespace dorvo {

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

    bool operator==(const StoredInstance&) const = default;
};

}  // namespace dorvo
