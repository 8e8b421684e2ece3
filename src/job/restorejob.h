// The job that restores, by hand. What its runs do, see RestoreTransfer; the job has what outlives
// them: the record of the file that one is bringing to its place.
#pragma once

#include <memory>
#include <string>

#include "job/job.h"
#include "job/restoretransfer.h"
#include "jobdef/restorejobdefinition.h"
#include "storage/placingrecord.h"

namespace dorvo {

class DORVO_JOB_API RestoreJob : public Job {
public:
    // The definition is that of a restore.
    explicit RestoreJob(std::unique_ptr<JobDefinition> definition,
                        const TransferServices& services = {});
    ~RestoreJob() override;

    // Besides, what a run that was killed has left beside its target goes.
    bool init() override;
    bool stop() override;

protected:
    unsigned long run() override;
    void endLeft(JobState end) override;

    // Finishes the run under way, see Transfer::cleanup.
    virtual JobState cleanup(JobState endCode);
    // A new back end for the run, null with the last error when there can be none. Work thread.
    virtual std::unique_ptr<RestoreStorage> createStorage(const StorageRun& run);
    // What the run lists its items from; null as above.
    virtual std::unique_ptr<RestoreCatalog> createCatalog();

private:
    const RestoreJobDefinition& restore() const {
        return static_cast<const RestoreJobDefinition&>(definition());
    }
    std::unique_ptr<RestoreTransfer> makeTransfer();

    const TransferServices services_;  // whole
    // The work thread's, and init()'s while there is none.
    PlacingRecord placing_;
    TransferMemory memory_;
    std::unique_ptr<RestoreTransfer> run_;  // while there is one
};

}  // namespace dorvo
