#include "job/backupjob.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <limits>

#include "base/last_error.h"
#include "base/local_time.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/uuid.h"
#include "httpmsg/http_names.h"
#include "job/activity/jobhistory.h"
#include "job/activity/jobhistoryinfo.h"
#include "job/backuprun.h"
#include "job/source/volumemap.h"
#include "settings/cookiemanager.h"
#include "settings/keymanager.h"
#include "settings/options.h"
#include "storage/web_increment_check.h"
#include "storage/webbackupstorage.h"

namespace dorvo {
namespace {

template <class T>
T& singleton() {
    return *ATL::CComSingleton<T, ATL::CComAutoCriticalSection>::instance();
}

constexpr int number(JobState state) {
    return static_cast<int>(state);
}

constexpr bool isFinal(int state) {
    return state == number(JobState::completed) || state == number(JobState::cancelled) ||
           state == number(JobState::error);
}

}  // namespace

BackupJob::BackupJob(std::unique_ptr<JobDefinition> definition)
    : BackupJob(std::move(definition), Services{}) {}

BackupJob::BackupJob(std::unique_ptr<JobDefinition> definition, Services services)
    : Job(std::move(definition)), services_(std::move(services)) {
    if (!services_.snapshotsEnabled) {
        services_.snapshotsEnabled = [] { return singleton<OptionsImpl>().enableSnapshot(); };
    }
    if (!services_.waitForServer) {
        services_.waitForServer = [] { return singleton<OptionsImpl>().waitForServer(); };
    }
    if (!services_.snapshots) {
        services_.snapshots = [] { return std::make_unique<VSSRequester>(); };
    }
    if (!services_.incrementCheck) {
        services_.incrementCheck = [this] {
            return std::make_unique<Web_Increment_Check>(
                Web_Increment_Check::Run{this->definition().id(), this->definition().user(),
                                         instanceText(), backup().compress(), stopEvent()});
        };
    }
}

BackupJob::~BackupJob() {
    shutdown();
}

bool BackupJob::init() {
    JobActivity* const record = activity().get();
    if (record == nullptr) {
        return false;
    }
    if (running()) {
        return true;
    }
    const int state = record->state;
    const bool stopAsked = record->pendingState == number(JobState::canceling);
    const bool underWay = state >= number(JobState::starting) && state <= number(JobState::pausing);
    if (state == number(JobState::canceling) || (underWay && stopAsked)) {
        // The service drops what was never ended; here the run ends now.
        runError_ = ERROR_CANCELLED;
        openFailedItems();
        writeHistory(number(JobState::cancelled));
        failed_.reset();
        loadVolumes(definition().id().c_str(), volumes_);
        clearVolumes(volumes_, definition().id().c_str(), number(JobState::cancelled));
        record->lastRunState = number(JobState::cancelled);
        record->lastRunTime = localTimeNow();
        record->endError = ERROR_CANCELLED;
        record->pendingState = 0;
        record->state = number(JobState::cancelled);
        activity().sync();
    } else if (underWay) {
        // A pause that its user has seen begin stays the user's.
        const bool pausing =
            state == number(JobState::pausing) || record->pendingState == number(JobState::pausing);
        if (!pausing) {
            record->pausedManually = 0;
        }
        record->pendingState = 0;
        record->state = number(JobState::paused);
        activity().sync();
    }
    if (record->state == number(JobState::paused) && record->hasInstance()) {
        armResume();
    }
    return true;
}

bool BackupJob::stop() {
    const JobActivity* const record = activity().get();
    if (record == nullptr) {
        return false;
    }
    std::unique_lock guard(stateLock_);
    switch (static_cast<JobState>(record->state)) {
        case JobState::starting:
        case JobState::running:
        case JobState::completing:
        case JobState::pausing: return requestStop();
        case JobState::paused: guard.unlock(); return cancelPausedRun();
        default: return true;
    }
}

bool BackupJob::requestStop() {
    const bool again = activity()->pendingState == number(JobState::canceling);
    if (!emit(JobCommand::stop)) {
        return false;
    }
    // After the command: a thread that was busy pausing clears what it finds, and must find this
    // at its end.
    activity()->pendingState = number(JobState::canceling);
    activity().sync();
    {
        std::lock_guard guard(snapshotLock_);
        if (snapshots_) {
            snapshots_->setEndEvent();
        }
    }
    if (!again) {
        notify_state(number(JobState::canceling));
    }
    return true;
}

bool BackupJob::cancelPausedRun() {
    disarmResume();
    if (!activity()->hasInstance()) {
        // Parked before its first run: there is nothing to cancel.
        activity()->pausedManually = 0;
        activity()->state = number(JobState::cancelled);
        activity().sync();
        notify_state();
        return true;
    }
    cancelOnly_ = true;
    // A run that has begun has left the state `paused`; starting counts as done without a thread
    // too.
    if (!startTask() || activity()->state == number(JobState::paused)) {
        cancelOnly_ = false;
        return false;
    }
    return true;
}

bool BackupJob::pause(bool manual) {
    std::lock_guard guard(stateLock_);
    if (!Job::pause(manual)) {
        return false;
    }
    std::lock_guard snapshots(snapshotLock_);
    if (snapshots_ && stopping()) {
        snapshots_->setEndEvent();
    }
    return true;
}

bool BackupJob::commandimpl(const char* text) {
    return Job::commandimpl(text);
}

unsigned long BackupJob::run() {
    FunctionTrace trace("BackupJob::run", "backupjob.cpp");
    disarmResume();
    retry_ = false;
    errorNotified_ = false;
    runError_ = ERROR_SUCCESS;
    atStorage_ = false;
    storage_.reset();
    volumes_.clear();
    totals_ = {};
    const bool cancelOnly = cancelOnly_.exchange(false);
    activity()->state = number(cancelOnly ? JobState::canceling : JobState::starting);
    activity()->pausedManually = 0;
    activity()->endError = ERROR_SUCCESS;
    activity().sync();
    openFailedItems();
    int endCode = number(JobState::cancelled);
    if (cancelOnly) {
        setStartEvent();
        notify_state();
        atStorage_ = true;
    } else {
        try {
            endCode = BackupRun(*this).carryOut();
        } catch (const std::exception& error) {
            log(LogLevel::error, "Run of job {%s} failed, %s.\n", definition().id().c_str(),
                error.what());
            runError_ = ERROR_INTERNAL_ERROR;
            endCode = number(JobState::error);
        }
    }
    finish(endCode);
    return runError_;
}

void BackupJob::finish(int endCode) {
    for (;;) {
        endCode = cleanup(endCode);
        std::lock_guard guard(stateLock_);
        JobActivity& record = *activity().get();
        if (endCode == number(JobState::paused) &&
            record.pendingState == number(JobState::canceling)) {
            endCode = number(JobState::cancelled);  // the stop came while the run wound down
            continue;
        }
        if (endCode == number(JobState::cancelled)) {
            runError_ = ERROR_CANCELLED;
        }
        record.endError = static_cast<uint32_t>(runError_);
        record.currentFileState = static_cast<uint32_t>(CurrentFileState::none);
        record.pendingState = 0;
        if (isFinal(endCode)) {
            record.resuming = 0;
            record.lastRunState = endCode;
            record.lastRunTime = localTimeNow();
        }
        std::atomic_signal_fence(std::memory_order_seq_cst);
        record.state = endCode;
        activity().sync();
        break;
    }
    storage_.reset();
    failed_.reset();
    if (endCode == number(JobState::error) && !errorNotified_) {
        notify_error(runError_);
    }
    notify_state(endCode);
    if (endCode == number(JobState::paused) && retry_) {
        armResume();
    }
}

int BackupJob::cleanup(int endCode) {
    FunctionTrace trace("BackupJob::cleanup", "backupjob.cpp");
    if (endCode == number(JobState::completed)) {
        endCode = endAtStorage();
    } else if (endCode == number(JobState::cancelled) || endCode == number(JobState::error)) {
        cancelAtStorage();
    }
    writeHistory(endCode);
    if (isFinal(endCode) && volumes_.empty()) {
        loadVolumes(definition().id().c_str(), volumes_);
    }
    clearVolumes(volumes_, definition().id().c_str(), endCode);
    return endCode;
}

int BackupJob::endAtStorage() {
    if (storage_->end()) {
        return number(JobState::completed);
    }
    const DWORD code = GetLastError();
    logRetry("end", code);
    runError_ = code;
    Failure failure = failureOf(code);
    failure.stopping = false;  // a pending stop is seen to afterwards
    notify_error(code);
    errorNotified_ = true;
    // An end that was broken off has not been refused: the resumed run ends again.
    const FailureAction action = runFailure(failure);
    if (action == FailureAction::pause || action == FailureAction::leave) {
        retry_ = true;
        return number(JobState::paused);
    }
    cancelAtStorage();
    return number(JobState::error);
}

void BackupJob::cancelAtStorage() {
    if (!atStorage_) {
        return;
    }
    if (!storage_) {
        storage_ = createStorage();
    }
    if (!storage_ || !storage_->cancel()) {
        logRetry("cancel", GetLastError());
    }
    atStorage_ = false;
}

void BackupJob::logRetry(const char* verb, unsigned long code) const {
    const std::string id = definition().id();
    const std::string name = toUtf8(definition().name());
    if (isHttpStatus(static_cast<uint32_t>(code))) {
        const int status = static_cast<int>(withoutHttpMark(static_cast<uint32_t>(code)));
        log(LogLevel::error, "Failed to %s job {%s, %s}, error-code = %d, %s, retrying latter.\n",
            verb, id.c_str(), name.c_str(), status, http_status_string(status));
        return;
    }
    SetLastError(code);
    log(LogLevel::error, "Failed to %s job {%s, %s}, error-code = %d, %m, retrying latter.\n", verb,
        id.c_str(), name.c_str(), static_cast<int>(code));
}

std::unique_ptr<BackupStorage> BackupJob::createStorage() {
    if (definition().storage() != StorageKind::web) {
        SetLastError(ERROR_NOT_SUPPORTED);
        log(LogLevel::error, "Job {%s} asks for a storage that there is not.\n",
            definition().id().c_str());
        return nullptr;
    }
    WebBackupStorage::Run run;
    run.jobId = definition().id();
    run.jobName = toUtf8(definition().name());
    run.compress = backup().compress();
    run.totals = totals_;
    run.activity = activity().get();
    run.failed = failed_.get();
    run.stop = stopEvent();
    const char* const user = definition().user().c_str();
    if (!singleton<KeyManagerImpl>().findKey(user, run.key.data(), run.key.size(), run.iv.data(),
                                             run.iv.size())) {
        log(LogLevel::error, "Failed to find the key of user {%s}, error-code = %d, %m.\n", user,
            static_cast<int>(GetLastError()));
        return nullptr;
    }
    singleton<OptionsImpl>().getServerInfo(run.host, run.port);
    singleton<CookieManagerImpl>().findCookie(user, run.cookie);
    return std::make_unique<WebBackupStorage>(std::move(run));
}

void BackupJob::writeHistory(int endCode) {
    std::wstring directory;
    const std::string instance = instanceText();
    if (instance.empty() || !jobDirectory(definition().id(), directory)) {
        return;
    }
    const JobActivity& record = *activity().get();
    JobHistoryInfo info(toUtf8(jobHistoryInfoPath(directory, instance)));
    info.instanceId(instance.c_str());
    info.type("backup");
    info.starttime(toFileTime(localToUtc(record.startTime)));
    info.endtime(toFileTime(utcTimeNow()));
    info.totalsize(static_cast<int64_t>(record.totalSize));
    info.filescount(record.fileCount);
    info.state(jobStateToString(endCode));
    info.speed(static_cast<int32_t>(
        std::min<uint64_t>(record.AverageSpeed(), std::numeric_limits<int32_t>::max())));
    const bool saved = info.save() && (!failed_ || failed_->save());
    if (!saved) {
        log(LogLevel::error, "Failed to write the history of job {%s}.\n",
            definition().id().c_str());
    }
    trimJobHistory(directory);
}

void BackupJob::openFailedItems() {
    std::wstring directory;
    jobDirectory(definition().id(), directory);
    failed_ = std::make_unique<FailedItems>(toUtf8(jobHistoryErrorPath(directory, instanceText())),
                                            *activity().get());
}

Failure BackupJob::failureOf(unsigned long code) {
    return {static_cast<uint32_t>(code), is_network_error(code), stopping(),
            services_.waitForServer()};
}

void BackupJob::pauseForRetry(unsigned long code) {
    runError_ = code;
    errorNotified_ = true;
    notify_error(code);
    retry_ = true;
    if (activity()->state != number(JobState::pausing)) {
        pause(false);
        pollEvent(0);
    }
}

bool BackupJob::stopping() const {
    return WaitForSingleObject(stopEvent(), 0) == WAIT_OBJECT_0;
}

std::string BackupJob::instanceText() const {
    const JobActivity& record = *activity().get();
    GUID id{};
    static_assert(sizeof(id) == sizeof(record.instanceId));
    std::copy(record.instanceId.begin(), record.instanceId.end(), reinterpret_cast<uint8_t*>(&id));
    return record.hasInstance() ? uuidText(id) : std::string();
}

}  // namespace dorvo
