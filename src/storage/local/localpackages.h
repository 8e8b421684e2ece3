// The files in which the packages of a job's instances lie, for reading.
//
// What an index says of a package is only believed when it lies inside the file. One thread.
#pragma once

#include <windows.h>

#include <cstdint>
#include <map>

#include "base/handle.h"
#include "storage/local/localplace.h"

namespace dorvo {

class LocalPackages {
public:
    explicit LocalPackages(LocalPlace place) : place_(std::move(place)) {}

    // True when the package is there as a whole. Remembers the size of each instance's file.
    bool holds(const LocalRecord& record);

    // The file in which the package lies, borrowed until the next call. INVALID_HANDLE_VALUE with
    // the last error: 13 when it would lie outside.
    HANDLE open(const LocalRecord& record);

private:
    LocalPlace place_;
    std::map<LocalInstanceId, uint64_t> sizes_;
    LocalInstanceId opened_{};
    FileHandle file_;  // of the instance opened_
};

}  // namespace dorvo
