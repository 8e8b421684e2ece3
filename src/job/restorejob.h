// The job that restores: a run lists what the definition names of a backup, and brings it back to
// its place or to another folder, item by item.
//
// No item ever leaves the folder that was chosen; one that would is a failed item.
#pragma once

#include <memory>
#include <string>

#include "job/transferjob.h"
#include "jobdef/restorejobdefinition.h"
#include "storage/placingrecord.h"
#include "storage/restorecatalog.h"
#include "storage/restorestorage.h"

namespace dorvo {

class DORVO_JOB_API RestoreJob : public TransferJob {
public:
    // The definition is that of a restore.
    explicit RestoreJob(std::unique_ptr<JobDefinition> definition,
                        WaitForServer waitForServer = {});
    ~RestoreJob() override;

    // Besides, what a run that was killed has left beside its target goes.
    bool init() override;

protected:
    unsigned long run() override;

    // A new back end for the run, null with the last error when there can be none. Work thread.
    virtual std::unique_ptr<RestoreStorage> createStorage(StorageUse use);
    PlacingRecord& placing() { return placing_; }
    // What the run lists its items from; null as above.
    virtual std::unique_ptr<RestoreCatalog> createCatalog();

private:
    friend class RestoreRun;
    friend class RestoreItems;

    const RestoreJobDefinition& restore() const {
        return static_cast<const RestoreJobDefinition&>(definition());
    }
    const char* kind() const override { return "restore"; }
    JobState transfer() override;
    void tidyUp(JobState endCode) override;
    bool openStorage() override;
    bool recordError(const wchar_t* path, DWORD code, const std::string& reason) override;
    bool completeAtStorage() override;
    bool dropAtStorage(JobState& endCode) override;
    void closeStorage() override { storage_.reset(); }
    // Its items are in their places: that the service has not heard of it makes no failure of it.
    FailureAction endAction(const Failure& failure, const EndFailures& failures) const override {
        return restoreEndFailure(failure, failures);
    }
    bool opensToEnd() const override { return false; }
    bool endAtStorage(JobState endCode);

    // The work thread's, and init()'s while there is none.
    PlacingRecord placing_;
    std::unique_ptr<RestoreStorage> storage_;
};

}  // namespace dorvo
