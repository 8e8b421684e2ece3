// What VSSRequester asks of a snapshot service: the seam that tests fill with one of their own.
//
// Calls come from one thread, in the order begin, supports for each volume, prepare, snapshot,
// complete; prepare and snapshot only where a volume can have a snapshot, complete once after every
// begin, whether it worked or not. Results are HRESULTs, S_OK on success.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "vssreq/export.h"

namespace dorvo {

// A volume and the snapshot it can be read from.
struct SnapshotVolume {
    std::wstring volumePath;  // as it was given to startBackup
    GUID snapshotSetId{};
    GUID snapshotId{};
    std::wstring shadowPath;        // device path with a trailing backslash
    int64_t creationTimestamp = 0;  // 100-nanosecond units since 1601, UTC
};

class SnapshotProvider {
public:
    virtual ~SnapshotProvider() = default;

    // Reaches the service. `end` is a manual-reset event, here and below: waits are broken off with
    // ERROR_CANCELLED when it is set.
    virtual HRESULT begin(int backupType, HANDLE end) = 0;
    // Whether the volume can have a snapshot. A question that fails is no answer.
    virtual HRESULT supports(const std::wstring& volume, bool& supported) = 0;
    // Gets a snapshot set of the volumes ready.
    virtual HRESULT prepare(const std::vector<std::wstring>& volumes, HANDLE end) = 0;
    // Makes the snapshots and lists them, in the order of the volumes.
    virtual HRESULT snapshot(std::vector<SnapshotVolume>& made, HANDLE end) = 0;
    // Tells the service that the backup is over and deletes the snapshots.
    virtual HRESULT complete() = 0;
    // The call that failed last, for a log line, and the volume that it was about; empty when it
    // was about all of them.
    virtual const char* step() const = 0;
    virtual std::wstring volume() const { return {}; }
};

}  // namespace dorvo
