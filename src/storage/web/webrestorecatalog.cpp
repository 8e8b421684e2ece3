#include "storage/web/webrestorecatalog.h"

#include "base/log.h"
#include "base/text.h"
#include "http_util/http_command.h"
#include "storage/item_attributes.h"
#include "storage/web/answer_wait.h"
#include "storage/web/web_exchange.h"
#include "storage/web/web_requests.h"
#include "storage/web/web_session.h"

namespace dorvo {

WebRestoreCatalog::WebRestoreCatalog(const std::string& user, StoredRun run, JobActivity* activity,
                                     HANDLE stop)
    : run_(std::move(run)), activity_(activity), stop_(stop), session_(user) {
    session_.set_interrupter(&stop_);
}

bool WebRestoreCatalog::list(const std::wstring& path, const std::string& after, Page& page) {
    FunctionTrace trace("WebRestoreCatalog::list", "webrestorecatalog.cpp");
    if (session_.invoker().invoker() == nullptr && !aimAtServerOfOptions(session_.invoker())) {
        return logFailed(ERROR_INVALID_PARAMETER,
                         "Failed to get the server information while listing a backup.\n");
    }
    Command_To_Server<List_Files_Request, Response_T<json_spirit::Value>> command(
        "List Files", {run_.machine, run_.jobInstanceId, withoutTrailingBackslash(toUtf8(path)),
                       after, pageLimit});
    const AnswerWait waits(command, activity_);
    if (!judge(session_.run(command), command, "list the files of backup", run_.jobInstanceId)) {
        return false;
    }
    StoredPage stored;
    if (!readStoredPage(command.response().body(), after, pageLimit, stored)) {
        return logFailed(ERROR_INVALID_DATA, "List Files: the answer is not of its shape.\n");
    }
    Page found;  // `after` may be the former page's own
    found.next = std::move(stored.next);
    found.missing = stored.missing;
    found.items.reserve(stored.items.size());
    for (const StoredPage::Item& item : stored.items) {
        found.items.push_back({toWide(item.path), fileAttributes(item.attributes)});
    }
    page = std::move(found);
    return true;
}

}  // namespace dorvo
