// The run of a backup job: volumes, snapshots, the list of what has to be sent, its items, which
// are read from the volumes' snapshots, and the storage, which is noted before it hears of the run.
#pragma once

#include <windows.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "job/backupnotes.h"
#include "job/pendingdrops.h"
#include "job/transfer.h"
#include "jobdef/backupjobdefinition.h"
#include "source/incrementcheck.h"
#include "source/jobvolume.h"
#include "storage/backupstorage.h"
#include "vssreq/vssrequester.h"

namespace dorvo {

// See TransferServices. The factories are called on the work thread, once a run.
struct BackupServices : TransferServices {
    std::function<bool()> snapshotsEnabled;
    std::function<std::unique_ptr<VSSRequester>()> snapshots;
    DWORD snapshotRetryMs = 10'000;  // from one try at a busy snapshot service to the next
    // Null, with the last error, when there can be none.
    std::function<std::unique_ptr<IncrementCheck>()> incrementCheck;
    // Has the runs told that storages are to drop; does not wait for it.
    std::function<void()> tellDrops;
};

// The requester of a run's snapshots, which a stop has to reach on another thread.
class RunSnapshots {
public:
    // The run's thread. Null until made, and after release().
    VSSRequester* get() const { return requester_.get(); }
    void make(const std::function<std::unique_ptr<VSSRequester>()>& factory);
    void release();
    // Breaks off what the requester does. Any thread.
    void tellEnd();

private:
    std::mutex lock_;  // guards the pointer
    std::shared_ptr<VSSRequester> requester_;
};

class BackupTransfer : public Transfer {
public:
    // What the run has of a backup job, borrowed.
    struct Parts {
        const BackupJobDefinition& definition;
        const BackupServices& services;  // whole
        const PendingDrops& drops;
        RunSnapshots& snapshots;
        // Null, with the last error, when there can be none.
        std::function<std::unique_ptr<BackupStorage>(const StorageRun&, const SourceTotals&)>
            createStorage;
    };

    BackupTransfer(Context context, Parts parts);

private:
    JobState run() override;
    bool transfer(const Item& item) override;
    bool passes(const Item& item, DWORD code) override;
    void enterVolume(const std::wstring& path) override;
    void tidyUp(JobState endCode) override;
    void letGo() override { check_.reset(); }

    bool openStorage() override;
    bool completeAtStorage() override;
    bool dropAtStorage(JobState& endCode) override;
    void forgetDrop() override { drops_.forget(instanceText()); }
    bool isCompletedAtStorage(DWORD refusal);
    void closeStorage() override { storage_.reset(); }
    FailureAction endAction(const Failure& failure, const EndFailures& failures) const override {
        return endFailure(failure, failures);
    }
    bool opensToEnd() const override { return true; }
    // storage_, of the server that has the run. False with the last error, as of note().
    bool makeStorage(StorageUse use);
    // Notes where the run is, before its storage hears of it. False with the last error:
    // errorOtherServer when the run has begun at another one than is set now.
    bool note();

    bool takeUpVolumes();
    void findLostVolumes();
    bool hasVolume(const std::wstring& source) const;
    bool prepare();
    bool noteRun();
    bool speakFirst();
    bool makeSnapshots();
    bool takeSnapshots();
    bool startSnapshots(const std::vector<std::wstring>& volumes);
    void copySnapshots();
    bool areSnapshotsThere() const;
    bool makeList();
    bool makeCheck();
    bool listFailed();
    bool generateList();
    void findVolume();
    bool isDiskOfPackagesFull();
    std::wstring readFrom(const std::wstring& path) const;

    const BackupJobDefinition& definition_;
    const BackupServices& services_;
    const PendingDrops& drops_;
    RunSnapshots& snapshots_;
    const decltype(Parts::createStorage) createStorage_;
    const std::wstring temporary_;  // the folder of the items' packages
    VolumeMap volumes_;
    const JobVolume* volume_ = nullptr;      // the current one, of the map
    std::unique_ptr<BackupNotes> notes_;     // from the loading of the volumes on
    std::unique_ptr<IncrementCheck> check_;  // until the list is made
    bool snapshotLost_ = false;              // while the list was being made
    std::unique_ptr<BackupStorage> storage_;
};

// Where a backup's runs are stored now: in the definition's folder, or at the server of the
// options.
PendingDrop placeOfRun(const BackupJobDefinition& definition, const std::string& instanceId);

}  // namespace dorvo
