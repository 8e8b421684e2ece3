#include "storage/web/web_increment_check.h"

#include "base/error_codes.h"
#include "base/log.h"
#include "base/text.h"
#include "http_util/http_command.h"
#include "storage/web/answer_wait.h"
#include "storage/web/web_exchange.h"
#include "storage/web/web_requests.h"

namespace dorvo {

Web_Increment_Check::Web_Increment_Check(std::string user, BackupTask task)
    : task_(std::move(task)), stop_(task_.stop), session_(std::move(user)) {
    session_.set_interrupter(&stop_);
}

bool Web_Increment_Check::check(const std::vector<File>& files, std::vector<bool>& send) {
    FunctionTrace trace("Web_Increment_Check::check", "web_increment_check.cpp");
    if (session_.cookie().empty()) {
        return logFailed(withHttpMark(401), "Failed to find cookie while doing increment check.\n");
    }
    if (session_.invoker().invoker() == nullptr && !aimAtServerOfOptions(session_.invoker())) {
        return logFailed(ERROR_INVALID_PARAMETER,
                         "Failed to get the server information while doing increment check.\n");
    }
    std::vector<IncrementItem> items;
    std::vector<std::string> asked;
    for (const File& file : files) {
        asked.push_back(withoutTrailingBackslash(toUtf8(file.path)));
        items.push_back({asked.back(), file.lastWriteTime});
    }
    Command_To_Server<Increament_Check_Request, Response_T<json_spirit::Value>> command(
        "Increment Check", {task_.jobId, task_.instanceId(), task_.compress, first_, items});
    const AnswerWait waits(command, task_.activity);
    if (!judge(session_.run(command), command, "do increment check of job", task_.jobId)) {
        return false;
    }
    first_ = false;
    std::vector<std::string> named;
    return (readIncrementAnswer(command.response().body(), named) &&
            markNamed(asked, named, send)) ||
           logFailed(ERROR_INVALID_DATA, "The answer to the increment check is not valid.\n");
}

bool markNamed(const std::vector<std::string>& asked, const std::vector<std::string>& named,
               std::vector<bool>& marks) {
    marks.assign(asked.size(), false);
    size_t next = 0;
    for (const std::string& path : named) {
        while (next < asked.size() && asked[next] != path) {
            ++next;
        }
        if (next == asked.size()) {
            return false;
        }
        marks[next++] = true;
    }
    return true;
}

}  // namespace dorvo
