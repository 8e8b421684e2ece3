// The run of a restore job: the list of what is wanted of a backup, its items, and at last the
// times of the directories.
#pragma once

#include "job/restorejob.h"
#include "job/transferrun.h"

namespace dorvo {

class RestoreRun : private TransferRun {
public:
    explicit RestoreRun(RestoreJob& job) : TransferRun(job), job_(job) {}

    // See TransferJob::transfer().
    JobState carryOut();

private:
    bool prepare();
    bool findRoot();
    bool makeList();
    bool forgetMadeFolders();
    bool generateList();

    RestoreJob& job_;
};

}  // namespace dorvo
