// One run of a backup job, from its first step to the end of its list, on the job's work thread.
//
// A friend of the job, which it borrows for the length of the run. What becomes of the run
// afterwards (completing, cancelling, parking it at the storage) is the job's business.
#pragma once

#include <memory>
#include <string>

#include "job/activity/jobactsrcreader.h"
#include "job/backupjob.h"

namespace dorvo {

class BackupRun {
public:
    explicit BackupRun(BackupJob& job);

    // Gives the end code: 7 the list is through, 6 paused, 9 cancelled, 10 failed, with the reason
    // in the job.
    int carryOut();

private:
    class SnapshotsOf;

    bool begin();
    bool prepare();
    bool loadVolumes();
    bool makeSnapshots();
    void copySnapshots();
    bool makeList();
    bool generateList();
    bool startStorage();
    bool hasVolume(const std::wstring& source) const;
    void forgetList();

    bool fail(unsigned long code);
    bool failOrPause(unsigned long code);
    bool carryOn();
    int endCode();

    BackupJob& job_;
    JobActivity& record_;
    std::wstring directory_;  // of the job
    std::wstring list_;       // the source list's path
    bool listed_ = false;     // the list of this run is whole
    JobActivitySourceReader reader_;
};

}  // namespace dorvo
