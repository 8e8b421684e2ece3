#include "job/backupjob.h"

#include <cstring>

#include "base/last_error.h"
#include "base/log.h"
#include "base/rm_rf.h"
#include "job/backuprun.h"
#include "job/source/volumemap.h"
#include "settings/options.h"
#include "settings/serverbinding.h"
#include "storage/itemtemppath.h"

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
      planner_(this->definition().id(), services_.schedules, services_.clock),
      drops_(this->definition().id()) {
    if (!services_.snapshotsEnabled) {
        services_.snapshotsEnabled = optionToSnapshot;
    }
    if (!services_.snapshots) {
        services_.snapshots = [] { return std::make_unique<VSSRequester>(); };
    }
    if (!services_.incrementCheck) {
        services_.incrementCheck = [this] {
            return makeIncrementCheck(backup(), instanceText(), *activity().get(), stopEvent());
        };
    }
    if (!services_.dropRun) {
        services_.dropRun = [this](const PendingDrop& drop) {
            return dropBackupRun(backup(), drop, stopEvent());
        };
    }
}

BackupJob::~BackupJob() {
    shutdown();
    planner_.stop();
    if (removing()) {
        handOnDrops();
    }
}

// A storage that is not told of what becomes of a run would keep it for ever.
void BackupJob::handOnDrops() {
    if (state() == static_cast<int32_t>(JobState::paused) && !instanceText().empty()) {
        drops_.add(drop());
    }
    drops_.handOn(definition());
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

void BackupJob::crashLeft(JobState next) {
    if (next == JobState::cancelled) {
        // The process died before the storage was told, or its record. Once the record says so
        // nobody would look for it any more.
        drops_.add(drop());
    } else {
        // It had failed, and the storage could not be told: now it would lose the run that goes on.
        drops_.forget(instanceText());
    }
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
    if (endCode != static_cast<int>(JobState::paused)) {
        // Of an item that was broken off with the process.
        rm_rf(itemTempFolder(definition().id()), false);
    }
}

bool BackupJob::openStorage() {
    server_ = serverOfOptions();
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
        server_ = serverOfOptions();
        storage_ = createStorage(StorageUse::end);
    }
    if (!storage_ || !storage_->cancel()) {
        const LastErrorGuard keep;
        drops_.failed(drop(), keep.error());
        return false;
    }
    tellDrops();
    return true;
}

void BackupJob::tellDrops() {
    drops_.tell(services_.dropRun);
}

PendingDrop BackupJob::drop() const {
    if (backup().storage() == StorageKind::local) {
        return {instanceText(), backup().location()};
    }
    return {instanceText(), {}, storage_ ? server_ : serverOfOptions()};
}

std::unique_ptr<BackupStorage> BackupJob::createStorage(StorageUse use) {
    return makeBackupStorage(backup(), storageRun(use), totals_);
}

}  // namespace dorvo
