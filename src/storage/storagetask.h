// What a storage is told of the run that it works for.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>

#include "base/uuid.h"
#include "record/jobactivity.h"
#include "storage/faileditems.h"
#include "storage/items.h"
#include "storage/storedinstance.h"
#include "storage/userkey.h"

namespace dorvo {

class PlacingRecord;

// All that is borrowed is so for the storage's life. The run's instance is that of its record.
struct StorageTask {
    std::string jobId;
    std::string jobName;
    UserKey key;                      // not for who only ends a run
    JobActivity* activity = nullptr;  // borrowed; without one there is no storage
    FailedItems* failed = nullptr;    // borrowed; only a run that is dropped has none
    HANDLE stop = nullptr;            // manual-reset event, borrowed
    // Called when the record has changed in a way that whoever shows the job wants to see; may be
    // empty.
    std::function<void()> changed = {};
    // How long ending or dropping the run may go on once a stop is asked for, milliseconds.
    DWORD finishPatienceMs = 60'000;

    // Empty when the record has no instance.
    std::string instanceId() const {
        return activity == nullptr ? std::string() : instanceText(activity->instanceId);
    }
};

struct BackupTask : StorageTask {
    bool compress = true;
    SourceTotals totals = {};
    // A serverName(), where the run has begun at one: another is not told of it.
    std::string server = {};
};

struct RestoreTask : StorageTask {
    StoredRun from = {};
    PlacingRecord* placing = nullptr;  // borrowed; null keeps none
};

}  // namespace dorvo
