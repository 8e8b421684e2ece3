// The run of a backup job: volumes, snapshots, the list of what has to be sent, its items.
#pragma once

#include <memory>

#include "job/backupjob.h"
#include "job/backupnotes.h"
#include "job/transferrun.h"

namespace dorvo {

class BackupRun : private TransferRun {
public:
    explicit BackupRun(BackupJob& job) : TransferRun(job), job_(job) {}

    // See TransferJob::transfer().
    int carryOut();

private:
    class SnapshotsOf;

    void loadVolumes();
    bool prepare();
    bool makeSnapshots();
    void copySnapshots();
    bool makeList();
    bool generateList();
    bool hasVolume(const std::wstring& source) const;
    void findLostVolumes();

    BackupJob& job_;
    std::unique_ptr<BackupNotes> notes_;  // from the loading of the volumes on
};

}  // namespace dorvo
