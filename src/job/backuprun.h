// The run of a backup job: volumes, snapshots, the list of what has to be sent, its items.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "job/backupjob.h"
#include "job/backupnotes.h"
#include "job/transferrun.h"

namespace dorvo {

class BackupRun : private TransferRun {
public:
    explicit BackupRun(BackupJob& job) : TransferRun(job), job_(job) {}

    // See TransferJob::transfer().
    JobState carryOut();

private:
    class SnapshotsOf;

    bool loadVolumes();
    bool prepare();
    bool noteRun();
    bool speakFirst();
    bool makeSnapshots();
    bool takeSnapshots();
    bool startSnapshots(const std::vector<std::wstring>& volumes);
    void copySnapshots();
    bool makeList();
    bool makeCheck();
    bool listFailed();
    bool generateList();
    bool areSnapshotsThere() const;
    bool hasVolume(const std::wstring& source) const;
    void findLostVolumes();

    BackupJob& job_;
    std::unique_ptr<BackupNotes> notes_;     // from the loading of the volumes on
    std::unique_ptr<IncrementCheck> check_;  // until the list is made
    bool snapshotLost_ = false;              // while the list was being made
};

}  // namespace dorvo
