#include "storage/web/webbackupstorage.h"

#include <set>

#include "base/error_codes.h"
#include "base/last_error.h"
#include "base/local_time.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "http_util/http_command.h"
#include "storage/itemtemppath.h"
#include "storage/web/web_exchange.h"
#include "storage/web/web_requests.h"
#include "storage/wire_time.h"

namespace dorvo {
namespace {

constexpr DWORD conflict = withHttpMark(409);
// An answer names a thousand files that the service lacks. One that lacks more than this holds no
// backup any more.
constexpr int maxEndRounds = 100;

std::wstring directoryOf(const std::string& jobId) {
    std::wstring path;
    jobDirectory(jobId, path);
    return path;
}

}  // namespace

WebBackupStorage::WebBackupStorage(WebPlace place, BackupTask task)
    : WebRun(std::move(place), task),
      task_(std::move(task)),
      instanceId_(task_.instanceId()),
      acceptedFile_(directoryOf(task_.jobId)),
      block_(uploadBlockSize),
      sender_(task_, itemTempFolder(task_.jobId), *this, *this) {}

bool WebBackupStorage::start() {
    FunctionTrace trace("WebBackupStorage::start", "webbackupstorage.cpp");
    if (instanceId_.empty()) {
        return logFailed(ERROR_INVALID_PARAMETER,
                         "Failed to start job {%s, %s}, can't convert the instance id to string, "
                         "error-code = %d, %m.\n",
                         task_.jobId, task_.jobName, ERROR_INVALID_PARAMETER);
    }
    Command_To_Server<Start_Job_Request, Response_T<json_spirit::Value>> command(
        "name less command",
        {task_.jobId, instanceId_, task_.totals, wire_time(localToUtc(activity_->startTime))});
    return aimAtServer() && judge(run(command), command, "start job", job());
}

bool WebBackupStorage::submit_errors() {
    return task_.failed == nullptr || task_.failed->eachBatch([this](auto batch) {
        Command_To_Server<Submit_Errors_Request, Response_T<std::string>> command(
            "Submit Error", {instanceId_, batch});
        return judge(run(command), command, "submit history errors of job", job());
    });
}

bool WebBackupStorage::end() {
    FunctionTrace trace("WebBackupStorage::end", "webbackupstorage.cpp");
    beginFinish();
    for (int round = 1;; ++round) {
        if (!submit_errors()) {
            return false;
        }
        Command_To_Server<End_Job_Request, Response_T<std::string>> command(
            "End Job", {instanceId_, wire_time(utcTimeNow())});
        if (judge(run(command), command, "end job", job())) {
            return true;
        }
        if (GetLastError() != conflict || round == maxEndRounds ||
            !recordIncomplete(command.error_text())) {
            return false;
        }
    }
}

// Puts the files that the service lacks on the list of failed items: a backup is not dropped for
// their sake. False, with the last error kept or that of the list, when none of them is new there,
// so that the service is not asked for ever.
bool WebBackupStorage::recordIncomplete(const std::string& answer) {
    LastErrorGuard keep;
    if (task_.failed == nullptr) {
        return false;
    }
    std::set<std::string> known;
    for (const FailedItem& item : task_.failed->list()) {
        known.insert(item.path);
    }
    bool more = false;
    for (const std::string& named : readIncomplete(answer)) {
        const std::wstring wide = toWide(named);
        const std::string path = toUtf8(wide);  // as the list keeps it, whatever came
        if (!known.insert(path).second) {
            continue;
        }
        log(LogLevel::error, "The service does not hold all of file {%s}.\n", path);
        if (!task_.failed->add(wide.c_str(), conflict, "the service does not hold all of it")) {
            keep.set(GetLastError());
            return false;
        }
        more = true;
    }
    return more;
}

bool WebBackupStorage::cancel() {
    FunctionTrace trace("WebBackupStorage::cancel", "webbackupstorage.cpp");
    beginFinish();
    if (instanceId_.empty()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    Command_To_Server<Stop_Job_Request, Response_T<std::string>> command(
        "Stop Job", Stop_Job_Request(instanceId_));
    return aimAtServer() && judge(run(command), command, "cancel job", job());
}

}  // namespace dorvo
