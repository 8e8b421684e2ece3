// The files in which the packages of a job's instances lie, for reading.
//
// What an index says of a package is only believed when it lies inside the file. Those that were
// found damaged are noted beside the packages, as records of an index, so that no later backup
// carries them over. One thread.
#pragma once

#include <windows.h>

#include <cstdint>
#include <map>
#include <set>

#include "base/handle.h"
#include "storage/local/localplace.h"

namespace dorvo {

class LocalPackages {
public:
    explicit LocalPackages(LocalPlace place) : place_(std::move(place)) {}

    // True when the package is there as a whole, and nobody has found it damaged. Remembers what it
    // has seen of each instance.
    bool holds(const LocalRecord& record);

    // Notes that the package was found damaged. A failure is logged. Keeps the last error.
    void noteDamage(const LocalRecord& record);

    // The file in which the package lies, borrowed until the next call. INVALID_HANDLE_VALUE with
    // the last error: 13 when it would lie outside.
    HANDLE open(const LocalRecord& record);

private:
    struct Container {
        uint64_t size = 0;           // of its file; 0 when there is none
        std::set<uint64_t> damaged;  // packages, by their offsets
    };

    const Container& container(const LocalInstanceId& id);
    bool append(const LocalRecord& record);

    LocalPlace place_;
    std::map<LocalInstanceId, Container> containers_;
    LocalInstanceId opened_{};
    FileHandle file_;  // of the instance opened_
};

}  // namespace dorvo
