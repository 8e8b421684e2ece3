#include "job/backuptransfer.h"

#include <objbase.h>

#include <algorithm>
#include <regex>
#include <utility>

#include "base/files.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/text.h"
#include "record/jobhistory.h"
#include "settings/serverbinding.h"
#include "source/exclusionlist.h"
#include "source/filterpolicy.h"
#include "source/jobactsrcgenerator.h"
#include "source/jobvolume.h"
#include "source/speedcalc.h"
#include "storage/itemtemppath.h"

namespace dorvo {
namespace {

constexpr const char* brokenNameText =
    "the name is not valid Unicode, so that it could not be told from others: rename it";

// Ten minutes, with the usual time between them.
constexpr int snapshotTries = 60;

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

// Lets go of the run's snapshots, before COM goes.
class SnapshotsOf {
public:
    explicit SnapshotsOf(RunSnapshots& snapshots) : snapshots_(snapshots) {}
    ~SnapshotsOf() { snapshots_.release(); }
    SnapshotsOf(const SnapshotsOf&) = delete;
    SnapshotsOf& operator=(const SnapshotsOf&) = delete;

private:
    RunSnapshots& snapshots_;
};

}  // namespace

void RunSnapshots::make(const std::function<std::unique_ptr<VSSRequester>()>& factory) {
    std::lock_guard guard(lock_);
    requester_ = factory();
}

void RunSnapshots::release() {
    // Ending a snapshot takes its time, and whoever stops the job wants the lock.
    std::shared_ptr<VSSRequester> ended;
    std::lock_guard guard(lock_);
    ended.swap(requester_);
}

void RunSnapshots::tellEnd() {
    std::lock_guard guard(lock_);
    if (requester_) {
        requester_->setEndEvent();
    }
}

// cppcheck-suppress passedByValue; a part of each is moved from
BackupTransfer::BackupTransfer(Context context, Parts parts)
    : Transfer(std::move(context),
               {"backup", "Start source files/directories set.\n",
                "End source files/directories set.\n", "Skip backup volumn item.\n"}),
      definition_(parts.definition),
      services_(parts.services),
      drops_(parts.drops),
      snapshots_(parts.snapshots),
      createStorage_(std::move(parts.createStorage)),
      temporary_(itemTempFolder(jobId())) {}

JobState BackupTransfer::run() {
    if (!begin("Start event released.\n")) {
        return brokenOffCode();
    }
    const SpeedCalc speed(record_, [this] { publish(); });
    log(LogLevel::debug, "Speed calculater registerred.\n");
    if (!takeUpVolumes() || !carryOn()) {
        return brokenOffCode();
    }
    const ComApartment com;
    if (FAILED(com.result())) {
        log(LogLevel::error, "Failed to initial COM context, %s.\n",
            errorText(static_cast<unsigned long>(com.result())));
        fail(static_cast<unsigned long>(com.result()));
        return brokenOffCode();
    }
    log(LogLevel::debug, "COM object initialized.\n");
    const SnapshotsOf released(snapshots_);
    return prepare() ? processItems() : brokenOffCode();
}

bool BackupTransfer::takeUpVolumes() {
    const bool takenUp = takeUp();
    atStorage_ = resumed_;
    if (!takenUp) {
        return false;
    }
    notes_ =
        std::make_unique<BackupNotes>(jobHistoryNotesPath(directory_, instanceText()), listed_);
    if (resumed_) {
        dorvo::loadVolumes(jobId().c_str(), volumes_);
    }
    if (!listed_) {
        SourceClassifier()(definition_.source(), volumes_);
    } else {
        findLostVolumes();
    }
    // Snapshots of an earlier run are gone with it.
    for (auto& [path, volume] : volumes_) {
        volume->snapshotSetId = {};
        volume->snapshotId = {};
        volume->shadowPath.clear();
        volume->creationTimestamp = -1;
    }
    log(LogLevel::debug, "Volumes loaded.\n");
    return true;
}

// A volume whose record is lost would be read without its snapshot. Those that are on record keep
// their indexes: one of them is the run's current volume.
void BackupTransfer::findLostVolumes() {
    const std::vector<std::wstring>& sources = definition_.source();
    VolumeMap& known = volumes_;
    if (std::all_of(sources.begin(), sources.end(),
                    [&](const std::wstring& source) { return hasVolume(source); })) {
        return;
    }
    int32_t last = 0;
    for (const auto& [path, volume] : known) {
        last = std::max(last, volume->index);
    }
    VolumeMap found;
    SourceClassifier()(sources, found);
    for (const auto& [path, volume] : found) {
        if (known.contains(path)) {
            continue;
        }
        const bool taken = std::any_of(
            known.begin(), known.end(),
            [index = volume->index](const auto& other) { return other.second->index == index; });
        last = std::max(last, volume->index);
        volume->index = taken ? ++last : volume->index;
        known[path] = volume;
    }
}

bool BackupTransfer::prepare() {
    if ((resumed_ && !(noteRun() && speakFirst())) || !makeSnapshots() || !makeList()) {
        return false;
    }
    if (!reader_.open(list_, static_cast<int64_t>(record_.sourcePosition))) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to open job activity source file, %d, %m.\n", keep.error());
        return failUnlessHeld(keep.error());
    }
    // Packages are encoded anew.
    rm_rf(itemTempFolder(jobId()), false);
    findVolume();
    if (!noteRun() || !startItems("Start to backing up files.\n")) {
        return false;
    }
    services_.tellDrops();  // the storage is there
    return true;
}

// Before the storage hears of the run, and once more when another server may have been set while
// the list was made: what this one has would be missing there.
bool BackupTransfer::noteRun() {
    if (note()) {
        return true;
    }
    const LastErrorGuard keep;
    return keep.error() == errorOtherServer ? refuse(keep.error()) : pause(keep.error());
}

// A run that goes on makes sure of its storage before it takes snapshots: it may have failed for
// the storage's sake, and would take new ones of every volume at each try of a night without
// network.
bool BackupTransfer::speakFirst() {
    return listed_ ? startStorage() : makeCheck();
}

bool BackupTransfer::makeSnapshots() {
    if (services_.snapshotsEnabled() && !isAtEndOfList() && !takeSnapshots()) {
        return false;
    }
    log(LogLevel::debug, "Volume snapshot created.\n");
    copySnapshots();
    if (snapshots_.get() != nullptr) {
        notes_->readLive(volumes_, *snapshots_.get());
    }
    flush();
    for (const auto& [path, volume] : volumes_) {
        volume->save(jobId().c_str());
    }
    return carryOn();
}

bool BackupTransfer::takeSnapshots() {
    snapshots_.make(services_.snapshots);
    std::vector<std::wstring> paths;
    for (const auto& [path, volume] : volumes_) {
        paths.push_back(path);
    }
    // A stop that came before the requester was there has told nobody.
    if (!carryOn()) {
        return false;
    }
    if (!startSnapshots(paths)) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to start snapshot, %d, %m.\n", keep.error());
        if (const std::wstring& volume = snapshots_.get()->failedVolume(); !volume.empty()) {
            log(LogLevel::error, "The snapshot service fails at volume {%s} in %s.\n",
                toUtf8(volume), snapshots_.get()->step());
        }
        // What a pause has told the requester stays told, even when the pause is taken back.
        return carryOn() && !parkIfPauseIsTakenBack() && fail(keep.error());
    }
    return true;
}

bool BackupTransfer::startSnapshots(const std::vector<std::wstring>& volumes) {
    for (int tries = 1;; ++tries) {
        if (snapshots_.get()->startBackup(volumes.empty() ? nullptr : &volumes, VSSRequester::copy,
                                          true)) {
            return true;
        }
        const LastErrorGuard keep;
        if (!VSSRequester::isBusy(keep.error()) || tries == snapshotTries) {
            return false;
        }
        log(LogLevel::information, "The snapshot service is busy, error-code = %d.\n",
            keep.error());
        if (WaitForSingleObject(stopEvent(), services_.snapshotRetryMs) == WAIT_OBJECT_0) {
            return false;
        }
    }
}

void BackupTransfer::copySnapshots() {
    const int count = snapshots_.get() != nullptr ? snapshots_.get()->volumeCount() : 0;
    for (int i = 0; i < count; ++i) {
        const SnapshotVolume& snapshot = snapshots_.get()->volume(i);
        const auto found = volumes_.find(snapshot.volumePath);
        if (found == volumes_.end()) {
            continue;
        }
        found->second->snapshotSetId = snapshot.snapshotSetId;
        found->second->snapshotId = snapshot.snapshotId;
        found->second->shadowPath = snapshot.shadowPath;
        found->second->creationTimestamp = snapshot.creationTimestamp;
    }
}

bool BackupTransfer::makeList() {
    if (listed_) {
        return true;
    }
    if (!beginList() || !noteRun()) {
        return false;
    }
    atStorage_ = true;
    log(LogLevel::debug, "Generating source list.\n");
    if (!check_ && !makeCheck()) {
        return false;
    }
    const bool made = generateList();
    {
        // It may hold files that the storage needs for itself.
        const LastErrorGuard keep;
        check_.reset();
    }
    if (!made) {
        return snapshotLost_ ? pause(GetLastError()) : listFailed();
    }
    log(LogLevel::debug, "Source list generated.\n");
    return true;
}

bool BackupTransfer::makeCheck() {
    check_ = services_.incrementCheck();
    return check_ || listFailed();
}

bool BackupTransfer::listFailed() {
    LastErrorGuard keep;
    log(LogLevel::error, "Failed to generator the job activity source, %d, %m.\n", keep.error());
    log(LogLevel::error, "Start job failed.\n");
    return failOrPause(keep.error());
}

bool BackupTransfer::areSnapshotsThere() const {
    return std::all_of(volumes_.begin(), volumes_.end(),
                       [](const auto& entry) { return isSnapshotThere(*entry.second); });
}

bool BackupTransfer::generateList() {
    std::unique_ptr<FilterPolicy> filter;
    try {
        filter = FilterPolicyFactory::create(definition_);
    } catch (const std::regex_error&) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    const interrupter stop(stopEvent());
    JobActivitySourceGenerator::Options options;
    options.filter = filter.get();
    options.excluded = ExcludedPaths(ExclusionList(), jobId());
    options.check = check_.get();
    options.stop = &stop;
    options.failedItem = [&](const std::wstring& path, DWORD error) {
        const char* const reason = error == ERROR_NO_UNICODE_TRANSLATION ? brokenNameText : "";
        addFailed(path, error, reason);
    };
    options.leavesOut = [&](const ComparablePath& path) { return notes_->leavesOut(path); };
    options.found = [&](const std::wstring& path) { notes_->found(path); };
    options.leftOut = [&](const std::wstring& path, DWORD tag) { notes_->notEntered(path, tag); };
    for (const std::wstring& source : definition_.source()) {
        if (!source.empty() && !hasVolume(source)) {
            options.failedItem(source, ERROR_PATH_NOT_FOUND);
        }
    }
    JobActivitySourceGenerator generator(std::move(options));
    if (!generator.generate(list_, volumes_)) {
        return false;
    }
    if (!allRecorded()) {
        return false;
    }
    // What could not be walked for want of a snapshot is not missing in the source.
    if (!areSnapshotsThere()) {
        snapshotLost_ = true;
        SetLastError(ERROR_DEV_NOT_EXIST);
        return false;
    }
    const SourceCalculator& walked = generator.walked();
    if (generator.filteredOut() && walked.fileCount() == 0) {
        notes_->nothingPassed(jobId());
    }
    notes_->save();
    record_.unchangedSize = generator.unchangedSize();
    return endList({generator.directoryCount(), generator.fileCount(), generator.fileSize()},
                   {walked.directoryCount(), walked.fileCount(), walked.fileSize()});
}

bool BackupTransfer::hasVolume(const std::wstring& source) const {
    return std::any_of(volumes_.begin(), volumes_.end(), [&](const auto& entry) {
        const auto& sources = entry.second->sources;
        return std::find(sources.begin(), sources.end(), source) != sources.end();
    });
}

}  // namespace dorvo
