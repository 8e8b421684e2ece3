// Chooses the place of backups, the web service of the options or a folder, and makes what a run
// talks to there.
//
// Null leaves the last error and is logged. A storage for items and an increment check have the
// user's key, agreed on with whoever keeps the backups; a refusal of the key is such a failure.
// What a run is made of is borrowed for the storage's life.
#pragma once

#include <windows.h>

#include <functional>
#include <memory>
#include <string>

#include "base/api.h"
#include "job/pendingdrops.h"
#include "jobdef/backupjobdefinition.h"
#include "jobdef/restorejobdefinition.h"
#include "storage/backend.h"

namespace dorvo {

// The user's backups in that folder; at the web service when it is empty.
DORVO_JOB_API std::unique_ptr<Backend> backendAt(const std::wstring& location,
                                                 const std::string& user);

// What a storage is made for: the items of a run, or only the end of one, which needs no key.
enum class StorageUse { items, end };

struct StorageRun {
    StorageUse use;
    JobActivity& activity;
    FailedItems& failed;
    HANDLE stop;                       // manual-reset event
    std::function<void()> changed;     // see StorageTask
    PlacingRecord* placing = nullptr;  // of a restore
};

std::unique_ptr<BackupStorage> makeBackupStorage(const BackupJobDefinition& definition,
                                                 const StorageRun& run, const SourceTotals& totals);
std::unique_ptr<RestoreStorage> makeRestoreStorage(const RestoreJobDefinition& definition,
                                                   const StorageRun& run);

// Has a run of the job that ended earlier dropped where it was stored, unless it is stopped. False
// leaves the last error, and is logged: errorOtherServer when another server is set than the one
// that has the run, which is not asked then.
bool dropBackupRun(const JobDefinition& definition, const PendingDrop& drop, HANDLE stop);

// The run's record is told while an answer is awaited.
std::unique_ptr<IncrementCheck> makeIncrementCheck(const BackupJobDefinition& definition,
                                                   JobActivity& activity, HANDLE stop);
std::unique_ptr<RestoreCatalog> makeRestoreCatalog(const RestoreJobDefinition& definition,
                                                   JobActivity& activity, HANDLE stop);

}  // namespace dorvo
