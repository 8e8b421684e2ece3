#include "job/backupjob.h"

#include <cstring>

#include "base/http_error.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/rm_rf.h"
#include "base/singleton.h"
#include "job/backuprun.h"
#include "job/jobmanager.h"
#include "record/jobactsrcreader.h"
#include "settings/options.h"
#include "settings/serverbinding.h"
#include "source/volumemap.h"
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
            return makeIncrementCheck(backup(), *activity().get(), stopEvent());
        };
    }
    if (!services_.tellDrops) {
        services_.tellDrops = [] {
            ATL::CComSingleton<JobManagerImpl, ATL::CComAutoCriticalSection>::instance()
                ->tellDrops();
        };
    }
}

BackupJob::~BackupJob() {
    shutdown();
    planner_.stop();
    if (removing()) {
        drops_.handOn(definition());  // on failure they stay where they are
    }
}

bool BackupJob::init() {
    if (!noteLeft() || !TransferJob::init()) {
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

// A run that an older version has begun is noted before it may be recorded as ended: until its note
// is on the disk, its record alone says that there is something to drop.
bool BackupJob::noteLeft() {
    if (running() || activity().get() == nullptr || isRestartable(lifecycle().state()) ||
        instanceText().empty() || drops_.note(placeOfRun())) {
        return true;
    }
    const LastErrorGuard keep;
    const bool ends = leftAs(lifecycle().state(), lifecycle().pending()) != JobState::paused;
    return !ends || drops_.holds(instanceText());
}

unsigned long BackupJob::run() {
    FunctionTrace trace("BackupJob::run", "backupjob.cpp");
    return carryOut();
}

JobState BackupJob::cleanup(JobState endCode) {
    FunctionTrace trace("BackupJob::cleanup", "backupjob.cpp");
    return TransferJob::cleanup(endCode);
}

JobState BackupJob::transfer() {
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

void BackupJob::tidyUp(JobState endCode) {
    // A run that ends before it has loaded its volumes leaves those of an earlier start.
    if (volumes_.empty() && endCode != JobState::paused) {
        loadVolumes(definition().id().c_str(), volumes_);
    }
    clearVolumes(volumes_, definition().id().c_str(), static_cast<int>(endCode));
    if (endCode != JobState::paused) {
        // Of an item that was broken off with the process.
        rm_rf(itemTempFolder(definition().id()), false);
    }
}

bool BackupJob::openStorage() {
    return makeStorage(StorageUse::items) && storage_->start();
}

// The server may be set anew while the storage is made, which asks it for the user's key: whose
// the storage has become is held against the note once more, before it hears of the run.
bool BackupJob::makeStorage(StorageUse use) {
    storage_ = createStorage(use);
    if (!storage_ || noteRun()) {
        return storage_ != nullptr;
    }
    if (GetLastError() != errorOtherServer) {
        SetLastError(
            ERROR_LOCK_VIOLATION);  // the note was there a moment ago: the run waits for it
    }
    const LastErrorGuard keep;
    storage_.reset();
    return false;
}

bool BackupJob::recordError(const wchar_t* path, DWORD code, const std::string& reason) {
    return storage_->recordError(path, code, reason);
}

// A completed run is never dropped: it is recorded as such when its note is gone.
bool BackupJob::completeAtStorage() {
    if (completed_ != instanceText()) {
        if (!storage_->end()) {
            return false;
        }
        completed_ = instanceText();
    }
    return drops_.forget(completed_);
}

// What the storage has completed stays, and is what the run has come to, whoever stops it then: the
// answer to its end may have been lost. A refusal is no answer for good, see PendingDrops::tell.
bool BackupJob::dropAtStorage(JobState& endCode) {
    if (completed_ != instanceText()) {
        if ((storage_ || makeStorage(StorageUse::end)) && storage_->cancel()) {
            drops_.forget(instanceText());
            services_.tellDrops();  // the storage is there: it hears of the others, too
            return true;
        }
        const LastErrorGuard keep;
        if (!storage_ || !isCompletedAtStorage(keep.error())) {
            return false;
        }
    }
    endCode = JobState::completed;
    drops_.forget(instanceText());  // else the teller does, which goes by the record
    return true;
}

// A folder says that of completed runs only. A service says a conflict, and is asked for the end
// once more, which changes nothing about a completed run; a run that does not stand at the end of
// its list has never been ended.
bool BackupJob::isCompletedAtStorage(DWORD refusal) {
    if (refusal != withHttpMark(409)) {
        return refusal == errorInstanceState;
    }
    std::wstring directory;
    JobActivitySourceReader list;
    return jobDirectory(definition().id(), directory) &&
           list.open(directory + L"\\src", static_cast<int64_t>(activity()->sourcePosition)) &&
           list.next() == tagSetEnd && list.next() == 0 && storage_->end();
}

bool BackupJob::noteRun() {
    const PendingDrop place = placeOfRun();
    const std::optional<PendingDrop> noted = drops_.note(place);
    if (!noted || noted->server.empty() || noted->server == place.server) {
        return noted.has_value();
    }
    log(LogLevel::error,
        "Run {%s} of job {%s} has begun at the server {%s}, and {%s} is set: the next run begins "
        "there.\n",
        noted->instanceId.c_str(), definition().id().c_str(), noted->server.c_str(),
        place.server.c_str());
    SetLastError(errorOtherServer);
    return false;
}

PendingDrop BackupJob::placeOfRun() const {
    if (backup().storage() == StorageKind::local) {
        return {instanceText(), backup().location()};
    }
    return {instanceText(), {}, serverOfOptions()};
}

std::unique_ptr<BackupStorage> BackupJob::createStorage(StorageUse use) {
    return makeBackupStorage(backup(), storageRun(use), totals_);
}

}  // namespace dorvo
