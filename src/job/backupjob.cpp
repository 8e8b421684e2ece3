#include "job/backupjob.h"

#include <cstring>

#include "base/log.h"
#include "job/backuprun.h"
#include "job/source/volumemap.h"
#include "settings/options.h"

namespace dorvo {
namespace {

bool optionToSnapshot() {
    return ATL::CComSingleton<OptionsImpl, ATL::CComAutoCriticalSection>::instance()
        ->enableSnapshot();
}

}  // namespace

BackupJob::BackupJob(std::unique_ptr<JobDefinition> definition)
    : BackupJob(std::move(definition), Services{}) {}

BackupJob::BackupJob(std::unique_ptr<JobDefinition> definition, Services services)
    : TransferJob(std::move(definition), services.waitForServer),
      services_(std::move(services)),
      planner_(this->definition().id(), services_.schedules, services_.clock) {
    if (!services_.snapshotsEnabled) {
        services_.snapshotsEnabled = optionToSnapshot;
    }
    if (!services_.snapshots) {
        services_.snapshots = [] { return std::make_unique<VSSRequester>(); };
    }
    if (!services_.incrementCheck) {
        services_.incrementCheck = [this] {
            return makeIncrementCheck(backup(), instanceText(), stopEvent());
        };
    }
}

BackupJob::~BackupJob() {
    shutdown();
    planner_.stop();
}

bool BackupJob::init() {
    if (!TransferJob::init()) {
        return false;
    }
    if (!backup().scheduleIsValid()) {
        log(LogLevel::error,
            "The schedule of job {%s} is not valid: the job starts by hand only.\n",
            definition().id().c_str());
    }
    plan(PlanReason::loaded);
    return true;
}

unsigned long BackupJob::run() {
    FunctionTrace trace("BackupJob::run", "backupjob.cpp");
    return carryOut();
}

int BackupJob::cleanup(int endCode) {
    FunctionTrace trace("BackupJob::cleanup", "backupjob.cpp");
    return TransferJob::cleanup(endCode);
}

int BackupJob::transfer() {
    return BackupRun(*this).carryOut();
}

bool BackupJob::commandimpl(const char* text) {
    if (text != nullptr && std::strcmp(text, "do_schedule") == 0) {
        return plan(PlanReason::asked);
    }
    return TransferJob::commandimpl(text);
}

void BackupJob::startAsked(bool refused) {
    plan(refused ? PlanReason::refused : PlanReason::started);
}

void BackupJob::runEnds() {
    plan(PlanReason::ended);
}

bool BackupJob::plan(PlanReason reason) {
    return activity().get() != nullptr && planner_.plan(reason, backup(), activity());
}

void BackupJob::stopAsked() {
    std::lock_guard guard(snapshotLock_);
    if (snapshots_) {
        snapshots_->setEndEvent();
    }
}

void BackupJob::tidyUp(int endCode) {
    // A run that ends before it has loaded its volumes leaves those of an earlier start.
    if (volumes_.empty() && endCode != static_cast<int>(JobState::paused)) {
        loadVolumes(definition().id().c_str(), volumes_);
    }
    clearVolumes(volumes_, definition().id().c_str(), endCode);
}

bool BackupJob::openStorage() {
    storage_ = createStorage(StorageUse::items);
    return storage_ && storage_->start();
}

bool BackupJob::recordError(const wchar_t* path, DWORD code, const std::string& reason) {
    return storage_->recordError(path, code, reason);
}

bool BackupJob::completeAtStorage() {
    return storage_->end();
}

bool BackupJob::dropAtStorage(int) {
    if (!storage_) {
        storage_ = createStorage(StorageUse::end);
    }
    return storage_ && storage_->cancel();
}

std::unique_ptr<BackupStorage> BackupJob::createStorage(StorageUse use) {
    return makeBackupStorage(backup(), storageRun(use), totals_);
}

}  // namespace dorvo
