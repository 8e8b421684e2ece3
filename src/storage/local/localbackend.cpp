#include "storage/local/localbackend.h"

#include <algorithm>
#include <iterator>

#include "base/last_error.h"
#include "base/local_time.h"
#include "base/log.h"
#include "base/machine_name.h"
#include "base/paths.h"
#include "base/text.h"
#include "storage/local/localbackupstorage.h"
#include "storage/local/localerror.h"
#include "storage/local/localincrementcheck.h"
#include "storage/local/localplace.h"
#include "storage/local/localrestorecatalog.h"
#include "storage/local/localrestorestorage.h"
#include "storage/wire_time.h"

namespace dorvo {
namespace {

// Of the key that the job's backups are made with; empty when it has none yet.
bool findMd5(const LocalPlace& place, const std::string& instanceId, std::string& md5) {
    LocalInstanceDocument document;
    if (place.load(instanceId, document)) {
        md5 = document.keyMd5;
        return true;
    }
    LocalPlace::Newest newest;
    if (!isNotFound(GetLastError()) || !place.newest(instanceId, newest)) {
        return false;
    }
    md5 = newest.completed.keyMd5;
    return true;
}

bool noKey(const LocalPlace& place, const std::string& user) {
    failedIn(place.location());
    return logFailure("find the key of user", user);
}

bool hasRecord(const StorageTask& task, const char* action) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return task.activity != nullptr || logFailure(action, task.jobId + ", " + task.jobName);
}

StoredInstance listed(const LocalInstanceDocument& document, const std::string& machine,
                      const std::string& job) {
    StoredInstance instance;
    instance.machine = machine;
    instance.jobDefinitionId = job;
    instance.jobInstanceId = document.id;
    instance.startTime = document.startTime;
    instance.endTime = document.endTime;
    instance.state = localStateText(document.state);
    instance.totalFiles = document.files;
    instance.totalDirectories = document.directories;
    instance.totalSize = document.size;
    instance.errors = document.errors;
    instance.user = document.user;
    return instance;
}

// Of such a one nothing is known but when its document was written last.
StoredInstance unreadable(const LocalPlace& place, const std::string& machine,
                          const std::string& job, const std::string& id) {
    StoredInstance instance;
    instance.machine = machine;
    instance.jobDefinitionId = job;
    instance.jobInstanceId = id;
    instance.state = damagedInstance;
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (GetFileAttributesExW(longPath(place.document(id)).c_str(), GetFileExInfoStandard, &data) !=
        0) {
        instance.endTime = wire_time(toTicks(data.ftLastWriteTime));
    }
    return instance;
}

// The names of the folders in a folder, if it is there, that can be such names; or only the one
// that is asked for.
bool names(const std::wstring& folder, const std::string& only, std::vector<std::string>& found) {
    if (!only.empty()) {
        found.push_back(only);
        return true;
    }
    const bool read = eachFolder(folder, [&](const std::wstring& name) {
        if (std::string text = toUtf8(name); isJobId(text)) {
            found.push_back(std::move(text));
        }
    });
    const bool listed = read || isNotFound(GetLastError());
    const LastErrorGuard keep;
    std::sort(found.begin(), found.end());
    return listed;
}

bool listJob(const LocalPlace& place, const std::string& machine, const std::string& job,
             std::vector<StoredInstance>& instances) {
    std::vector<LocalInstanceDocument> documents;
    std::vector<StoredInstance> damaged;
    if (!place.each([&](const LocalInstanceDocument& document) { documents.push_back(document); },
                    [&](const std::string& id) {
                        damaged.push_back(unreadable(place, machine, job, id));
                    })) {
        return false;
    }
    std::sort(documents.begin(), documents.end(),
              [](const auto& a, const auto& b) { return a.sequence < b.sequence; });
    for (const LocalInstanceDocument& document : documents) {
        instances.push_back(listed(document, machine, job));
    }
    std::move(damaged.begin(), damaged.end(), std::back_inserter(instances));
    return true;
}

bool listAll(const std::wstring& location, const std::string& machine, const std::string& job,
             std::vector<StoredInstance>& instances) {
    std::vector<std::string> machines;
    if (!names(location, machine, machines)) {
        return false;
    }
    for (const std::string& name : machines) {
        std::vector<std::string> jobs;
        if (!names(location + L"\\" + toWide(name), job, jobs)) {
            return false;
        }
        for (const std::string& id : jobs) {
            if (!listJob(LocalPlace(location, name, id), name, id, instances)) {
                return false;
            }
        }
    }
    return true;
}

}  // namespace

bool LocalBackend::ownMachine(std::string& machine) const {
    machine = machine_;
    if (!machine.empty() || machineName(machine)) {
        return true;
    }
    return logFailed("Failed to find the machine's name, error-code = %d, %m.\n", GetLastError());
}

bool LocalBackend::keyForBackup(const BackupTask& task, UserKey& key) const {
    std::string machine;
    if (!ownMachine(machine)) {
        return false;
    }
    const LocalPlace place(location_, machine, task.jobId);
    if (!place.checkToWrite()) {
        return false;
    }
    std::string md5;
    return (findMd5(place, task.instanceId(), md5) &&
            (md5.empty() ? ownKey(user_, key) : heldKey(user_, md5, key))) ||
           noKey(place, user_);
}

bool LocalBackend::keyForRestore(const RestoreTask& task, UserKey& key) const {
    const LocalPlace place(location_, task.from.machine, task.from.jobDefinitionId);
    if (!place.checkToRead()) {
        return false;
    }
    LocalInstanceDocument document;
    return (place.loadCompleted(task.from.jobInstanceId, document) &&
            heldKey(user_, document.keyMd5, key)) ||
           noKey(place, user_);
}

std::unique_ptr<BackupStorage> LocalBackend::backup(BackupTask task) const {
    std::string machine;
    if (!hasRecord(task, "start job") || !ownMachine(machine)) {
        return nullptr;
    }
    return std::make_unique<LocalBackupStorage>(LocalPlace(location_, machine, task.jobId), user_,
                                                std::move(task));
}

std::unique_ptr<RestoreStorage> LocalBackend::restore(RestoreTask task) const {
    if (!hasRecord(task, "start restore job")) {
        return nullptr;
    }
    return std::make_unique<LocalRestoreStorage>(location_, std::move(task));
}

std::unique_ptr<IncrementCheck> LocalBackend::incrementCheck(const BackupTask& task) const {
    std::string machine;
    if (!ownMachine(machine)) {
        return nullptr;
    }
    return std::make_unique<LocalIncrementCheck>(LocalPlace(location_, machine, task.jobId), task);
}

std::unique_ptr<RestoreCatalog> LocalBackend::catalog(const StoredRun& run, JobActivity*,
                                                      HANDLE stop) const {
    return std::make_unique<LocalRestoreCatalog>(
        LocalPlace(location_, run.machine, run.jobDefinitionId), run.jobInstanceId, stop);
}

bool LocalBackend::runs(const std::string& machine, const std::string& jobId,
                        std::vector<StoredInstance>& found) const {
    found.clear();
    // Any names will do to look at the location itself.
    const LocalPlace place(location_, machine.empty() ? "any" : machine,
                           jobId.empty() ? "any" : jobId);
    if (!place.check()) {
        return false;
    }
    if (!listAll(place.location(), machine, jobId, found)) {
        found.clear();
        failedIn(place.location());
        return logFailure("list the backups in", toUtf8(place.location()));
    }
    if (found.empty() && place.isAway()) {
        return failedAway(place.location());
    }
    // Of a damaged run nobody knows whose it is.
    std::erase_if(found, [this](const StoredInstance& run) {
        return !user_.empty() && run.user != user_ && run.state != damagedInstance;
    });
    return true;
}

}  // namespace dorvo
