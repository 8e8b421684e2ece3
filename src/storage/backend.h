// A place that keeps backups: all that jobs, listings and the contract suite know of one.
//
// Makes what a run or a listing works with; what it has made does not need it any more. Null and
// false leave the last error and are logged. Any thread; what it makes is for one.
#pragma once

#include <windows.h>

#include <memory>
#include <string>
#include <vector>

#include "record/jobactivity.h"
#include "source/incrementcheck.h"
#include "storage/backupstorage.h"
#include "storage/restorecatalog.h"
#include "storage/restorestorage.h"
#include "storage/storagetask.h"
#include "storage/storedinstance.h"

namespace dorvo {

class Backend {
public:
    virtual ~Backend() = default;

    // The user's key, agreed on with whoever keeps the backups: comes before what stores or brings
    // back items. A backup may make one. The errors of userkey.h: another try mends none of them.
    virtual bool keyForBackup(const BackupTask& task, UserKey& key) const = 0;
    virtual bool keyForRestore(const RestoreTask& task, UserKey& key) const = 0;

    // Null also for a task without a record (87), and errorOtherServer where the task names another
    // server than this.
    virtual std::unique_ptr<BackupStorage> backup(BackupTask task) const = 0;
    virtual std::unique_ptr<RestoreStorage> restore(RestoreTask task) const = 0;

    // The task's record shows that an answer is awaited.
    virtual std::unique_ptr<IncrementCheck> incrementCheck(const BackupTask& task) const = 0;

    // What a run holds. The record, told the same, and the stop signal are borrowed; both may be
    // null.
    virtual std::unique_ptr<RestoreCatalog> catalog(const StoredRun& run, JobActivity* activity,
                                                    HANDLE stop) const = 0;

    // The runs of one machine and one job (each empty: all), the oldest of a job first.
    virtual bool runs(const std::string& machine, const std::string& jobId,
                      std::vector<StoredInstance>& found) const = 0;
};

}  // namespace dorvo
