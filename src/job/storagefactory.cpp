#include "job/storagefactory.h"

#include "base/last_error.h"
#include "base/log.h"
#include "base/machine_name.h"
#include "base/singleton.h"
#include "base/text.h"
#include "job/transferfailure.h"
#include "settings/cookiemanager.h"
#include "settings/options.h"
#include "storage/local/localbackupstorage.h"
#include "storage/local/localincrementcheck.h"
#include "storage/local/localkey.h"
#include "storage/local/localrestorecatalog.h"
#include "storage/local/localrestorestorage.h"
#include "storage/web/web_increment_check.h"
#include "storage/web/web_keys.h"
#include "storage/web/webbackupstorage.h"
#include "storage/web/webrestorecatalog.h"
#include "storage/web/webrestorestorage.h"

namespace dorvo {
namespace {

template <class T>
T& singleton() {
    return *ATL::CComSingleton<T, ATL::CComAutoCriticalSection>::instance();
}

bool isWeb(const JobDefinition& definition) {
    return definition.storage() == StorageKind::web;
}

bool findMachine(std::string& machine) {
    if (machineName(machine)) {
        return true;
    }
    log(LogLevel::error, "Failed to find the machine's name, error-code = %d, %m.\n",
        static_cast<int>(GetLastError()));
    return false;
}

void fillRun(const JobDefinition& definition, const StorageRun& run, StorageJob& target) {
    target.jobId = definition.id();
    target.jobName = toUtf8(definition.name());
    target.activity = &run.activity;
    target.failed = &run.failed;
    target.stop = run.stop;
    target.changed = run.changed;
}

// `find` gives a UserKey; the end of a run needs none.
template <class Target, class Find>
bool fillKey(StorageUse use, const Find& find, Target& target) {
    UserKey found;
    if (use == StorageUse::items && !find(found)) {
        return false;
    }
    target.key = found.key;
    target.iv = found.iv;
    return true;
}

template <class Target>
bool fillAgreedKey(const JobDefinition& definition, const StorageRun& run, KeyUse keyUse,
                   Target& target) {
    return fillKey(
        run.use, [&](UserKey& key) { return agreeOnKey(definition.user(), keyUse, run.stop, key); },
        target);
}

// Of a backup in a folder.
template <class Target>
bool fillBackupKey(const JobDefinition& definition, StorageUse use, const std::string& instanceId,
                   Target& target) {
    return fillKey(
        use,
        [&](UserKey& key) {
            const LocalPlace place(target.location, target.machine, target.jobId);
            return findBackupKey(place, instanceId, definition.user(), key);
        },
        target);
}

template <class Target>
void fillServer(const JobDefinition& definition, Target& target) {
    target.user = definition.user();
    singleton<OptionsImpl>().getServerInfo(target.host, target.port);
    singleton<CookieManagerImpl>().findCookie(definition.user().c_str(), target.cookie,
                                              serverName(target.host, target.port));
}

template <class Target>
void fillOrigin(const RestoreJobDefinition& definition, Target& target) {
    target.machine = definition.machine();
    target.jobDefinitionId = definition.jobDefinitionId();
    target.jobInstanceId = definition.jobInstanceId();
}

// What comes of a drop is decided by the error of the cancel, not by what closing leaves.
bool cancelIn(std::unique_ptr<BackupStorage> storage) {
    const bool cancelled = storage->cancel();
    const LastErrorGuard keep;
    storage.reset();
    return cancelled;
}

}  // namespace

std::unique_ptr<BackupStorage> makeBackupStorage(const BackupJobDefinition& definition,
                                                 const StorageRun& run,
                                                 const SourceTotals& totals) {
    const auto fill = [&](auto& target) {
        fillRun(definition, run, target);
        target.compress = definition.compress();
        target.totals = totals;
    };
    if (isWeb(definition)) {
        WebBackupStorage::Run web;
        fill(web);
        if (!fillAgreedKey(definition, run, KeyUse::backup, web)) {
            return nullptr;
        }
        fillServer(definition, web);
        return std::make_unique<WebBackupStorage>(std::move(web));
    }
    LocalBackupStorage::Run local;
    fill(local);
    local.location = definition.location();
    local.user = definition.user();
    if (!findMachine(local.machine) ||
        !fillBackupKey(definition, run.use, localInstanceText(run.activity.instanceId), local)) {
        return nullptr;
    }
    return std::make_unique<LocalBackupStorage>(std::move(local));
}

bool dropBackupRun(const JobDefinition& definition, const PendingDrop& drop, HANDLE stop) {
    const auto record = std::make_unique<JobActivity>();
    record->instanceId = localInstanceId(drop.instanceId);
    const auto fill = [&](StorageJob& target) {
        target.jobId = definition.id();
        target.jobName = toUtf8(definition.name());
        target.activity = record.get();
        target.stop = stop;
    };
    if (drop.location.empty()) {
        WebBackupStorage::Run web;
        fill(web);
        fillServer(definition, web);
        if (!drop.server.empty() && drop.server != serverName(web.host, web.port)) {
            log(LogLevel::information,
                "Run {%s} of job {%s} is dropped when its server {%s} is set again.\n",
                drop.instanceId.c_str(), definition.id().c_str(), drop.server.c_str());
            SetLastError(errorOtherServer);
            return false;
        }
        web.finishPatienceMs = 0;
        return cancelIn(std::make_unique<WebBackupStorage>(std::move(web)));
    }
    LocalBackupStorage::Run local;
    fill(local);
    local.location = drop.location;
    return findMachine(local.machine) &&
           cancelIn(std::make_unique<LocalBackupStorage>(std::move(local)));
}

std::unique_ptr<RestoreStorage> makeRestoreStorage(const RestoreJobDefinition& definition,
                                                   const StorageRun& run) {
    const auto fill = [&](auto& target) {
        fillRun(definition, run, target);
        fillOrigin(definition, target);
        target.placing = run.placing;
    };
    if (isWeb(definition)) {
        WebRestoreStorage::Run web;
        fill(web);
        if (!fillAgreedKey(definition, run, KeyUse::restore, web)) {
            return nullptr;
        }
        fillServer(definition, web);
        return std::make_unique<WebRestoreStorage>(std::move(web));
    }
    LocalRestoreStorage::Run local;
    fill(local);
    local.location = definition.location();
    const auto find = [&](UserKey& key) {
        const LocalPlace place(local.location, local.machine, local.jobDefinitionId);
        return findRestoreKey(place, local.jobInstanceId, definition.user(), key);
    };
    if (!fillKey(run.use, find, local)) {
        return nullptr;
    }
    return std::make_unique<LocalRestoreStorage>(std::move(local));
}

std::unique_ptr<IncrementCheck> makeIncrementCheck(const BackupJobDefinition& definition,
                                                   const std::string& instanceId,
                                                   JobActivity& activity, HANDLE stop) {
    if (isWeb(definition)) {
        // A machine with the wrong key hears of it before it walks its disks, and opens no run.
        if (UserKey key; !agreeOnKey(definition.user(), KeyUse::backup, stop, key)) {
            return nullptr;
        }
        return std::make_unique<Web_Increment_Check>(
            Web_Increment_Check::Run{definition.id(), definition.user(), instanceId,
                                     definition.compress(), stop, &activity});
    }
    LocalIncrementCheck::Run local;
    local.location = definition.location();
    local.jobId = definition.id();
    local.instanceId = instanceId;
    local.stop = stop;
    if (!findMachine(local.machine) ||
        !fillBackupKey(definition, StorageUse::items, instanceId, local)) {
        return nullptr;
    }
    return std::make_unique<LocalIncrementCheck>(std::move(local));
}

std::unique_ptr<RestoreCatalog> makeRestoreCatalog(const RestoreJobDefinition& definition,
                                                   JobActivity& activity, HANDLE stop) {
    if (isWeb(definition)) {
        return std::make_unique<WebRestoreCatalog>(WebRestoreCatalog::Run{
            definition.machine(), definition.jobInstanceId(), definition.user(), stop, &activity});
    }
    LocalRestoreCatalog::Run local;
    local.location = definition.location();
    fillOrigin(definition, local);
    local.stop = stop;
    return std::make_unique<LocalRestoreCatalog>(std::move(local));
}

}  // namespace dorvo
