#include "job/storagefactory.h"

#include <array>
#include <bit>

#include "base/last_error.h"
#include "base/text.h"
#include "base/uuid.h"
#include "storage/local/localbackend.h"
#include "storage/web/webbackend.h"

namespace dorvo {
namespace {

std::unique_ptr<Backend> backendOf(const JobDefinition& definition) {
    return backendAt(
        definition.storage() == StorageKind::web ? std::wstring() : definition.location(),
        definition.user());
}

void fill(const JobDefinition& definition, StorageTask& task) {
    task.jobId = definition.id();
    task.jobName = toUtf8(definition.name());
}

void fill(const JobDefinition& definition, const StorageRun& run, StorageTask& task) {
    fill(definition, task);
    task.activity = &run.activity;
    task.failed = &run.failed;
    task.stop = run.stop;
    task.changed = run.changed;
}

StoredRun originOf(const RestoreJobDefinition& definition) {
    return {definition.machine(), definition.jobDefinitionId(), definition.jobInstanceId()};
}

}  // namespace

std::unique_ptr<Backend> backendAt(const std::wstring& location, const std::string& user) {
    if (location.empty()) {
        return std::make_unique<WebBackend>(user);
    }
    return std::make_unique<LocalBackend>(location, user);
}

std::unique_ptr<BackupStorage> makeBackupStorage(const BackupJobDefinition& definition,
                                                 const StorageRun& run,
                                                 const SourceTotals& totals) {
    const std::unique_ptr<Backend> place = backendOf(definition);
    BackupTask task;
    fill(definition, run, task);
    task.compress = definition.compress();
    task.totals = totals;
    return run.use == StorageUse::end || place->keyForBackup(task, task.key)
               ? place->backup(std::move(task))
               : nullptr;
}

bool dropBackupRun(const JobDefinition& definition, const PendingDrop& drop, HANDLE stop) {
    const auto record = std::make_unique<JobActivity>();
    GUID id{};
    uuidFromText(drop.instanceId, id);
    record->instanceId = std::bit_cast<std::array<uint8_t, 16>>(id);
    BackupTask task;
    fill(definition, task);
    task.activity = record.get();
    task.stop = stop;
    task.server = drop.server;
    task.finishPatienceMs = 0;
    std::unique_ptr<BackupStorage> storage =
        backendAt(drop.location, definition.user())->backup(std::move(task));
    const bool dropped = storage && storage->cancel();
    // What comes of it is decided by the error of the cancel, not by what closing leaves.
    const LastErrorGuard keep;
    storage.reset();
    return dropped;
}

std::unique_ptr<RestoreStorage> makeRestoreStorage(const RestoreJobDefinition& definition,
                                                   const StorageRun& run) {
    const std::unique_ptr<Backend> place = backendOf(definition);
    RestoreTask task;
    fill(definition, run, task);
    task.from = originOf(definition);
    task.placing = run.placing;
    return run.use == StorageUse::end || place->keyForRestore(task, task.key)
               ? place->restore(std::move(task))
               : nullptr;
}

// A machine with the wrong key hears of it before it walks its disks, and opens no run.
std::unique_ptr<IncrementCheck> makeIncrementCheck(const BackupJobDefinition& definition,
                                                   JobActivity& activity, HANDLE stop) {
    const std::unique_ptr<Backend> place = backendOf(definition);
    BackupTask task;
    fill(definition, task);
    task.activity = &activity;
    task.stop = stop;
    task.compress = definition.compress();
    return place->keyForBackup(task, task.key) ? place->incrementCheck(task) : nullptr;
}

std::unique_ptr<RestoreCatalog> makeRestoreCatalog(const RestoreJobDefinition& definition,
                                                   JobActivity& activity, HANDLE stop) {
    return backendOf(definition)->catalog(originOf(definition), &activity, stop);
}

}  // namespace dorvo
