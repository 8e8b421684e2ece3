// Makes what a run talks to, by the definition's storage: the web service of the options, or a
// folder.
//
// Null leaves the last error and is logged. A storage for items and an increment check have the
// user's key, agreed on with whoever keeps the backups; a refusal of the key is such a failure.
// What a run is made of is borrowed for the storage's life.
#pragma once

#include <windows.h>

#include <functional>
#include <memory>
#include <string>

#include "job/pendingdrops.h"
#include "jobdef/backupjobdefinition.h"
#include "jobdef/restorejobdefinition.h"
#include "record/jobactivity.h"
#include "source/incrementcheck.h"
#include "storage/backupstorage.h"
#include "storage/faileditems.h"
#include "storage/placingrecord.h"
#include "storage/request_bodies.h"
#include "storage/restorecatalog.h"
#include "storage/restorestorage.h"

namespace dorvo {

// What a storage is made for: the items of a run, or only the end of one, which needs no key.
enum class StorageUse { items, end };

struct StorageRun {
    StorageUse use;
    JobActivity& activity;
    FailedItems& failed;
    HANDLE stop;                       // manual-reset event
    std::function<void()> changed;     // see StorageJob
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

// `instanceId` is that of the run; its record is told while an answer is awaited.
std::unique_ptr<IncrementCheck> makeIncrementCheck(const BackupJobDefinition& definition,
                                                   const std::string& instanceId,
                                                   JobActivity& activity, HANDLE stop);
std::unique_ptr<RestoreCatalog> makeRestoreCatalog(const RestoreJobDefinition& definition,
                                                   JobActivity& activity, HANDLE stop);

}  // namespace dorvo
