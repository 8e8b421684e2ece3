#include "storage/web/webrestorestorage.h"

#include "base/error_codes.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/text.h"
#include "base/uuid.h"
#include "httpmsg/http_names.h"
#include "storage/item_attributes.h"
#include "storage/itemtemppath.h"
#include "storage/restoretarget.h"
#include "storage/web/web_exchange.h"

namespace dorvo {
namespace {

// As the service writes it; empty for a text that is no id.
std::string asWritten(const std::string& text) {
    GUID id{};
    return uuidFromText(text, id) ? uuidText(id) : std::string();
}

}  // namespace

WebRestoreStorage::WebRestoreStorage(WebPlace place, RestoreTask task)
    : WebRun(std::move(place), task),
      task_(std::move(task)),
      backupId_(asWritten(task_.from.jobInstanceId)),
      temporary_(itemTempFolder(task_.jobId)),
      fetcher_(task_, temporary_, ItemFetcher::ResumeBy::offset, *this, *this) {
    download_.body_limit(md5TextSize + uploadBlockSize);
}

bool WebRestoreStorage::submit(HTTP_Command& command, BrokenLine broken, RefusedLine refused) {
    switch (judge(run(command), command)) {
        case Exchanged::done: return true;
        case Exchanged::broken:
            return logFailed(broken, task_.jobId, task_.jobName, GetLastError());
        case Exchanged::refused: break;
    }
    const int status = command.http_response().status();
    return logFailed(refused, task_.jobId, task_.jobName, status, http_status_string(status));
}

bool WebRestoreStorage::start() {
    FunctionTrace trace("WebRestoreStorage::start", "webrestorestorage.cpp");
    const auto fail = [this](LogText<std::string, std::string> words, DWORD error) {
        return logFailed(error, words, task_.jobId, task_.jobName);
    };
    if (!aimAtServer()) {
        return fail("Failed to start restore job {%s, %s}, invalid host name or port.\n",
                    ERROR_INVALID_PARAMETER);
    }
    if (session_.cookie().empty()) {
        return logFailed(
            withHttpMark(401),
            "Failed to start restore job {%s, %s}, can't find the cookie for user {%s}.\n",
            task_.jobId, task_.jobName, place_.user);
    }
    if (backupId_.empty()) {
        return fail(
            "Failed to start restore job {%s, %s}, can't convert the instance GUID to string.\n",
            ERROR_INVALID_PARAMETER);
    }
    constexpr BrokenLine broken = "Failed to start restore job {%s, %s}, error-code = %d, %m.\n";
    Command_To_Server<Start_Restore_Job_Request, Response_T<json_spirit::Value>> command(
        "Start Restore Job", {task_.from.jobDefinitionId, backupId_});
    if (!submit(command, broken, "Failed to start restore job {%s, %s}, status-code = %d, %s.\n")) {
        return false;
    }
    RestoreTicket ticket;
    if (!readRestoreTicket(command.response().body(), ticket)) {
        return logFailed(ERROR_INVALID_DATA, broken, task_.jobId, task_.jobName,
                         ERROR_INVALID_DATA);
    }
    restoreId_ = std::move(ticket.jobInstanceId);
    return true;
}

bool WebRestoreStorage::get_file_info(const StoredPath& path, bool directory, StoredItem& item) {
    Command_To_Server<Get_File_Info_Request, Response_T<json_spirit::Value>> command(
        "name less command", Get_File_Info_Request(path));
    if (judge(run(command), command) != Exchanged::done) {
        return false;
    }
    if (readStoredItem(command.response().body(), item) &&
        item.attributes.directory() == directory) {
        return true;
    }
    SetLastError(ERROR_INVALID_DATA);
    return false;
}

bool WebRestoreStorage::end(const json_spirit::Object& history) {
    FunctionTrace trace("WebRestoreStorage::end", "webrestorestorage.cpp");
    beginFinish();
    log(LogLevel::debug, "End job {%s, %s}.\n", task_.jobId, task_.jobName);
    if (!aimAtServer()) {
        return logFailed("Failed to submit job historyinvalid host name or port.\n");
    }
    // The service takes errors and history of a restore that it knows.
    if (restoreId_.empty() && !start()) {
        return false;
    }
    const auto submitErrors = [this](std::span<const FailedItem> batch) {
        Command_To_Server<Submit_Errors_Request, Response_T<std::string>> command(
            "Submit Error", {restoreId_, batch});
        return submit(command, "Submit history errors failed, job {%s, %s}, error-code = %d, %m.\n",
                      "Submit history errors failed, job {%s, %s}, status-code = %d, %s.\n");
    };
    if (task_.failed != nullptr && !task_.failed->eachBatch(submitErrors)) {
        return false;
    }
    json_spirit::Object record = history;
    if (!record.empty()) {
        record["instanceId"] = restoreId_;
    }
    Command_To_Server<Submit_History_Request, Response_T<std::string>> command(
        "Submit History", Submit_History_Request(record));
    return submit(command, "Submit history failed, job {%s, %s}, error-code = %d, %m.\n",
                  "Submit history failed, job {%s, %s}, error-code = %d, %s.\n");
}

bool WebRestoreStorage::stopped(LogText<std::string> words, const std::string& name) const {
    if (!interrupted()) {
        return false;
    }
    log(LogLevel::information, words, name);
    SetLastError(ERROR_CANCELLED);
    return true;
}

bool WebRestoreStorage::stepFailed(LogText<std::string> cancelled, const std::string& name,
                                   const std::function<void(int)>& logFailure) const {
    LastErrorGuard keep;
    if (stopped(cancelled, name)) {
        keep.set(ERROR_CANCELLED);
        return false;
    }
    SetLastError(keep.error());
    logFailure(static_cast<int>(keep.error()));
    keep.set(errorOf(keep.error()));
    return false;
}

bool WebRestoreStorage::valid(const std::string& original, const std::string& target) const {
    if (!original.empty() && !target.empty()) {
        return true;
    }
    return logFailed(ERROR_INVALID_PARAMETER, "Invalid path, orignal {%s}, new {%s}.\n", original,
                     target);
}

bool WebRestoreStorage::restoreDirectory(const wchar_t* original, const wchar_t* target) {
    FunctionTrace trace("WebRestoreStorage::restoreDirectory", "webrestorestorage.cpp");
    const std::string name =
        original == nullptr ? std::string() : withoutTrailingBackslash(toUtf8(original));
    const std::wstring folder = target == nullptr ? std::wstring() : target;
    const std::string place = toUtf8(folder);
    log(LogLevel::debug, "Restoring directory {%s} to {%s}.\n", name, place);
    beginWork();
    if (!valid(name, place)) {
        return false;
    }
    constexpr LogText<std::string> cancelledBefore = "Restoring directory {%s} is cancelled.\n";
    if (stopped(cancelledBefore, name)) {
        return false;
    }
    bool existed = false;
    if (!makeRestoredDirectory(folder, existed)) {
        return stepFailed(cancelledBefore, name, [&](int code) {
            log(LogLevel::error, "Create directory {%s} failed, %d, %m.\n", place, code);
        });
    }
    if (existed) {
        log(LogLevel::debug, "Directory {%s} exists.\n", place);
    }
    constexpr LogText<std::string> cancelledAfter = "Restoring directory {%s} is cancelled,.\n";
    if (stopped(cancelledAfter, name)) {
        return false;
    }
    log(LogLevel::debug, "Directory {%s} restored to {%s}, start to get the attributes.\n", name,
        place);
    // A drive lies in no folder by which it could be asked for, and has no attributes to give back.
    return storedPath(task_.from.machine, backupId_, name).folder.empty() ||
           dressDirectory(name, folder, place);
}

bool WebRestoreStorage::dressDirectory(const std::string& name, const std::wstring& target,
                                       const std::string& place) {
    StoredItem item;
    if (!get_file_info(storedPath(task_.from.machine, backupId_, name), true, item)) {
        return stepFailed(
            LogText<std::string>("Restoring directory {%s} is cancelled when download file "
                                 "information.\n"),
            name, [&](int) {
                log(LogLevel::error, "Download file information failed, file {%s}.\n", name);
            });
    }
    constexpr LogText<std::string> cancelled = "Restoring directory {%s} is cancelled,.\n";
    if (stopped(cancelled, name)) {
        return false;
    }
    return dressRestoredDirectory(target, fileAttributes(item.attributes)) ||
           stepFailed(cancelled, name, [&](int code) {
               log(LogLevel::error, "Restoring directory {%s} to {%s} failed, %d, %m.\n", name,
                   place, code);
           });
}

}  // namespace dorvo
