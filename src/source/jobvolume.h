// One volume that holds sources of a job, with the snapshot it is read from, and its file in the
// job's directory (docs/formats/volume-file.md), which lets an interrupted run find the snapshot
// again.
#pragma once

#include <windows.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace dorvo {

struct JobVolume {
    int32_t index = -1;  // from 1, in the order in which volumes were met; names the volume file
    int32_t state = 0;
    GUID snapshotSetId{};
    GUID snapshotId{};
    std::wstring path;               // the mount point, with its trailing backslash
    std::wstring shadowPath;         // the snapshot's device path, empty without a snapshot
    int64_t creationTimestamp = -1;  // of the snapshot, as its requester reports it
    std::vector<std::wstring> sources;

    // Writes the volume file of the job; makes its folder. False is logged; a null, empty or
    // impossible id writes nothing.
    bool save(const char* jobId) const;
};

// By mount point. Shared, so that a record in use survives a map that is filled anew.
using VolumeMap = std::map<std::wstring, std::shared_ptr<JobVolume>>;

}  // namespace dorvo
