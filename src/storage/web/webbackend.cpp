#include "storage/web/webbackend.h"

#include <iterator>

#include "base/log.h"
#include "base/singleton.h"
#include "settings/cookiemanager.h"
#include "settings/options.h"
#include "settings/serverbinding.h"
#include "storage/web/token_loop.h"
#include "storage/web/web_bodies.h"
#include "storage/web/web_exchange.h"
#include "storage/web/web_increment_check.h"
#include "storage/web/web_keys.h"
#include "storage/web/web_requests.h"
#include "storage/web/web_session.h"
#include "storage/web/webbackupstorage.h"
#include "storage/web/webrestorecatalog.h"
#include "storage/web/webrestorestorage.h"

namespace dorvo {
namespace {

// As many as the service gives at once.
constexpr int instancesPerPage = 1000;

template <class T>
T& singleton() {
    return *ATL::CComSingleton<T, ATL::CComAutoCriticalSection>::instance();
}

bool hasRecord(const StorageTask& task, LogText<std::string, std::string> words) {
    return task.activity != nullptr ||
           logFailed(ERROR_INVALID_PARAMETER, words, task.jobId, task.jobName);
}

}  // namespace

WebPlace WebBackend::place() const {
    WebPlace place;
    place.user = user_;
    singleton<OptionsImpl>().getServerInfo(place.host, place.port);
    singleton<CookieManagerImpl>().findCookie(user_.c_str(), place.cookie,
                                              serverName(place.host, place.port));
    return place;
}

bool WebBackend::keyForBackup(const BackupTask& task, UserKey& key) const {
    return agreeOnKey(user_, KeyUse::backup, task.stop, key);
}

bool WebBackend::keyForRestore(const RestoreTask& task, UserKey& key) const {
    return agreeOnKey(user_, KeyUse::restore, task.stop, key);
}

std::unique_ptr<BackupStorage> WebBackend::backup(BackupTask task) const {
    if (!hasRecord(task, "Failed to start job {%s, %s}, invalid job activity.\n")) {
        return nullptr;
    }
    WebPlace at = place();
    if (!task.server.empty() && task.server != serverName(at.host, at.port)) {
        log(LogLevel::information,
            "Run {%s} of job {%s} is dropped when its server {%s} is set again.\n",
            task.instanceId(), task.jobId, task.server);
        SetLastError(errorOtherServer);
        return nullptr;
    }
    return std::make_unique<WebBackupStorage>(std::move(at), std::move(task));
}

std::unique_ptr<RestoreStorage> WebBackend::restore(RestoreTask task) const {
    if (!hasRecord(task, "Failed to start restore job {%s, %s}, invalid job activity.\n")) {
        return nullptr;
    }
    return std::make_unique<WebRestoreStorage>(place(), std::move(task));
}

std::unique_ptr<IncrementCheck> WebBackend::incrementCheck(const BackupTask& task) const {
    return std::make_unique<Web_Increment_Check>(user_, task);
}

std::unique_ptr<RestoreCatalog> WebBackend::catalog(const StoredRun& run, JobActivity* activity,
                                                    HANDLE stop) const {
    return std::make_unique<WebRestoreCatalog>(user_, run, activity, stop);
}

bool WebBackend::runs(const std::string& machine, const std::string& jobId,
                      std::vector<StoredInstance>& found) const {
    Web_Session session(user_);
    if (!aimAtServerOfOptions(session.invoker())) {
        return false;
    }
    std::vector<StoredInstance> all;
    std::string next;
    TokenLoop loop;
    do {
        Command_To_Server<List_Instances_Request, Response_T<json_spirit::Value>> command(
            "List Instances", {machine, jobId, next, instancesPerPage});
        if (!judge(session.run(command), command, "list the runs of machine", machine)) {
            return false;
        }
        std::vector<StoredInstance> page;
        // Pages that go round, or hold nothing, would never end.
        if (!readInstances(command.response().body(), page, next) ||
            (!next.empty() && (page.empty() || loop.closedBy(next)))) {
            return logFailed(ERROR_INVALID_DATA,
                             "List Instances: the answer is not of its shape.\n");
        }
        all.insert(all.end(), std::make_move_iterator(page.begin()),
                   std::make_move_iterator(page.end()));
    } while (!next.empty());
    found = std::move(all);
    return true;
}

}  // namespace dorvo
