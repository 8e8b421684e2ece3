#include "job/backuprun.h"

#include <objbase.h>

#include <algorithm>
#include <regex>
#include <vector>

#include "base/error_text.h"
#include "base/last_error.h"
#include "base/local_time.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/rm_rf.h"
#include "base/text.h"
#include "job/backupitems.h"
#include "job/runtotals.h"
#include "job/source/exclusionlist.h"
#include "job/source/filterpolicyfactory.h"
#include "job/source/jobactsrcgenerator.h"
#include "job/source/sourceclassifier.h"
#include "job/source/speedcalc.h"
#include "job/source/volumemap.h"
#include "storage/itemtemppath.h"

namespace dorvo {
namespace {

constexpr int paused = static_cast<int>(JobState::paused);
constexpr int cancelled = static_cast<int>(JobState::cancelled);
constexpr int failed = static_cast<int>(JobState::error);

// COM for the length of a run.
class ComApartment {
public:
    ComApartment() : result_(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) {}
    ~ComApartment() {
        if (SUCCEEDED(result_)) {
            CoUninitialize();
        }
    }
    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;
    HRESULT result() const { return result_; }

private:
    HRESULT result_;
};

}  // namespace

BackupRun::BackupRun(BackupJob& job) : job_(job), record_(*job.activity().get()) {}

// Lets go of the run's snapshots, before COM goes.
class BackupRun::SnapshotsOf {
public:
    explicit SnapshotsOf(BackupJob& job) : job_(job) {}
    ~SnapshotsOf() {
        // Ending a snapshot takes its time, and whoever stops the job wants the lock.
        std::shared_ptr<VSSRequester> ended;
        std::lock_guard guard(job_.snapshotLock_);
        ended.swap(job_.snapshots_);
    }
    SnapshotsOf(const SnapshotsOf&) = delete;
    SnapshotsOf& operator=(const SnapshotsOf&) = delete;

private:
    BackupJob& job_;
};

int BackupRun::carryOut() {
    if (!begin()) {
        return endCode();
    }
    const SpeedCalc speed(record_);
    log(LogLevel::debug, "Speed calculater registerred.\n");
    if (!loadVolumes() || !carryOn()) {
        return endCode();
    }
    const ComApartment com;
    if (FAILED(com.result())) {
        log(LogLevel::error, "Failed to initial COM context, %s.\n",
            errorText(static_cast<unsigned long>(com.result())).c_str());
        fail(static_cast<unsigned long>(com.result()));
        return endCode();
    }
    log(LogLevel::debug, "COM object initialized.\n");
    const SnapshotsOf snapshots(job_);
    const int end = prepare() ? BackupItems(job_, reader_).store() : 0;
    reader_.close();
    return end != 0 ? end : endCode();
}

bool BackupRun::begin() {
    if (!job_.setStartEvent()) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to set start event, %d, %m.\n",
            static_cast<int>(keep.error()));
        return fail(keep.error());
    }
    log(LogLevel::debug, "Start event released.\n");
    job_.notify_state();
    if (!jobDirectory(job_.definition().id(), directory_)) {
        return fail(GetLastError());
    }
    list_ = directory_ + L"\\src";
    return carryOn();
}

bool BackupRun::loadVolumes() {
    // Without a start time nothing of the run was ever recorded, whatever lies in the folder.
    const bool resumed = record_.resuming != 0 && record_.startTime != 0;
    listed_ = resumed && loadRunTotals(directory_, job_.totals_) &&
              GetFileAttributesW(longPath(list_).c_str()) != INVALID_FILE_ATTRIBUTES;
    job_.atStorage_ = resumed;
    if (resumed) {
        dorvo::loadVolumes(job_.definition().id().c_str(), job_.volumes_);
    } else {
        forgetList();
        record_.startTime = localTimeNow();
    }
    if (!listed_ || job_.volumes_.empty()) {
        SourceClassifier()(job_.backup().source(), job_.volumes_);
    }
    // Snapshots of an earlier run are gone with it.
    for (auto& [path, volume] : job_.volumes_) {
        volume->snapshotSetId = {};
        volume->snapshotId = {};
        volume->shadowPath.clear();
        volume->creationTimestamp = -1;
    }
    log(LogLevel::debug, "Volumes loaded.\n");
    return true;
}

bool BackupRun::prepare() {
    if (!makeSnapshots() || !makeList()) {
        return false;
    }
    if (!reader_.open(list_, static_cast<int64_t>(record_.sourcePosition))) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to open job activity source file, %d, %m.\n",
            static_cast<int>(keep.error()));
        return fail(keep.error());
    }
    return startStorage();
}

bool BackupRun::makeSnapshots() {
    if (job_.services_.snapshotsEnabled()) {
        {
            std::lock_guard guard(job_.snapshotLock_);
            job_.snapshots_ = job_.services_.snapshots();
        }
        std::vector<std::wstring> paths;
        for (const auto& [path, volume] : job_.volumes_) {
            paths.push_back(path);
        }
        // A stop that came before the requester was there has told nobody.
        if (!carryOn()) {
            return false;
        }
        if (!job_.snapshots_->startBackup(paths.empty() ? nullptr : &paths, VSSRequester::copy,
                                          true)) {
            LastErrorGuard keep;
            log(LogLevel::error, "Failed to start snapshot, %d, %m.\n",
                static_cast<int>(keep.error()));
            return carryOn() && fail(keep.error());
        }
    }
    log(LogLevel::debug, "Volume snapshot created.\n");
    copySnapshots();
    job_.activity().sync();
    for (const auto& [path, volume] : job_.volumes_) {
        volume->save(job_.definition().id().c_str());
    }
    return carryOn();
}

void BackupRun::copySnapshots() {
    const int count = job_.snapshots_ ? job_.snapshots_->volumeCount() : 0;
    for (int i = 0; i < count; ++i) {
        const SnapshotVolume& snapshot = job_.snapshots_->volume(i);
        const auto found = job_.volumes_.find(snapshot.volumePath);
        if (found == job_.volumes_.end()) {
            continue;
        }
        found->second->snapshotSetId = snapshot.snapshotSetId;
        found->second->snapshotId = snapshot.snapshotId;
        found->second->shadowPath = snapshot.shadowPath;
        found->second->creationTimestamp = snapshot.creationTimestamp;
    }
}

bool BackupRun::makeList() {
    if (listed_) {
        return true;
    }
    forgetList();
    // Only the making of a list that was never finished can have left failed items.
    if (!job_.failed_->clear()) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to clear the failed items of job {%s}, error-code = %d, %m.\n",
            job_.definition().id().c_str(), static_cast<int>(keep.error()));
        return fail(keep.error());
    }
    job_.atStorage_ = true;
    log(LogLevel::debug, "Generating source list.\n");
    if (!generateList()) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to generator the job activity source, %d, %m.\n",
            static_cast<int>(keep.error()));
        log(LogLevel::error, "Start job failed.\n");
        return failOrPause(keep.error());
    }
    log(LogLevel::debug, "Source list generated.\n");
    return true;
}

bool BackupRun::generateList() {
    std::unique_ptr<FilterPolicy> filter;
    try {
        filter = FilterPolicyFactory::create(job_.backup());
    } catch (const std::regex_error&) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    const std::unique_ptr<IncrementCheck> check = job_.services_.incrementCheck();
    const interrupter stop(job_.stopEvent());
    bool recorded = true;
    JobActivitySourceGenerator::Options options;
    options.filter = filter.get();
    options.excluded = ExcludedPaths(ExclusionList(), job_.definition().id());
    options.check = check.get();
    options.stop = &stop;
    options.failedItem = [&](const std::wstring& path, DWORD error) {
        recorded = job_.failed_->add(path.c_str(), error, {}) && recorded;
    };
    for (const std::wstring& source : job_.backup().source()) {
        if (!source.empty() && !hasVolume(source)) {
            options.failedItem(source, ERROR_PATH_NOT_FOUND);
        }
    }
    JobActivitySourceGenerator generator(std::move(options));
    if (!generator.generate(list_, job_.volumes_)) {
        return false;
    }
    if (!recorded) {
        SetLastError(ERROR_WRITE_FAULT);
        return false;
    }
    record_.fileCount = generator.fileCount();
    record_.directoryCount = generator.directoryCount();
    record_.totalSize = generator.fileSize();
    record_.unchangedSize = generator.unchangedSize();
    const SourceCalculator& walked = generator.walked();
    job_.totals_ = {walked.directoryCount(), walked.fileCount(), walked.fileSize()};
    return saveRunTotals(directory_, job_.totals_);
}

bool BackupRun::hasVolume(const std::wstring& source) const {
    return std::any_of(job_.volumes_.begin(), job_.volumes_.end(), [&](const auto& entry) {
        const auto& sources = entry.second->sources;
        return std::find(sources.begin(), sources.end(), source) != sources.end();
    });
}

// What is on record of a list goes with it.
void BackupRun::forgetList() {
    removeRunTotals(directory_);
    DeleteFileW(longPath(list_).c_str());
    record_.sourcePosition = 0;
    record_.itemNumber = 0;
    record_.acceptedBlocks = 0;
    record_.packageSize = 0;
    record_.volumeIndex = 0;
    record_.fileIndex = 0;
    record_.doneSize = 0;
    listed_ = false;
}

bool BackupRun::startStorage() {
    const std::wstring temporary = itemTempFolder(job_.definition().id());
    rm_rf(temporary, false);
    if (!createDirectories(temporary)) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to create folder {%s} for packages, error-code = %d, %m.\n",
            toUtf8(temporary).c_str(), static_cast<int>(keep.error()));
        return fail(keep.error());
    }
    job_.storage_ = job_.createStorage();
    if (!job_.storage_ || !job_.storage_->start()) {
        LastErrorGuard keep;
        log(LogLevel::error, "Start job failed.\n");
        return failOrPause(keep.error());
    }
    log(LogLevel::debug, "Job started.\n");
    if (!carryOn()) {
        return false;
    }
    record_.state = static_cast<int>(JobState::running);
    job_.activity().sync();
    job_.notify_state();
    log(LogLevel::information, "Start to backing up files.\n");
    return true;
}

bool BackupRun::fail(unsigned long code) {
    job_.runError_ = code;
    return false;
}

bool BackupRun::failOrPause(unsigned long code) {
    switch (runFailure(job_.failureOf(code))) {
        case FailureAction::pause: job_.pauseForRetry(code); return false;
        case FailureAction::leave:
            if (!carryOn()) {
                return false;
            }
            break;
        case FailureAction::record:
        case FailureAction::fail: break;
    }
    job_.notify_error(code);
    job_.errorNotified_ = true;
    return fail(code);
}

bool BackupRun::carryOn() {
    return job_.pollEvent(0);
}

int BackupRun::endCode() {
    switch (static_cast<JobState>(record_.state)) {
        case JobState::pausing: return paused;
        case JobState::canceling: return cancelled;
        default: return failed;
    }
}

}  // namespace dorvo
