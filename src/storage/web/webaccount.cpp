#include "storage/web/webaccount.h"

#include <windows.h>

#include <iterator>

#include "base/log.h"
#include "settings/cookiemanager.h"
#include "storage/web/token_loop.h"
#include "storage/web/web_bodies.h"
#include "storage/web/web_requests.h"
#include "storage/web/web_session.h"

namespace dorvo {
namespace {

// As many as the service gives at once.
constexpr int instancesPerPage = 1000;

// Empty when the store does not know the cookie.
std::string ownerOf(const std::string& cookie) {
    std::string user;
    ATL::CComSingleton<CookieManagerImpl, ATL::CComAutoCriticalSection>::instance()->findUser(
        cookie.c_str(), user);
    return user;
}

}  // namespace

bool WebAccount::listInstances(const std::string& cookie, const std::string& machine,
                               const std::string& jobDefinitionId,
                               std::vector<StoredInstance>& instances) {
    Web_Session session(ownerOf(cookie), cookie);
    if (!aimAtServerOfOptions(session.invoker())) {
        return false;
    }
    std::vector<StoredInstance> all;
    std::string next;
    TokenLoop loop;
    do {
        Command_To_Server<List_Instances_Request, Response_T<json_spirit::Value>> command(
            "List Instances", {machine, jobDefinitionId, next, instancesPerPage});
        if (!exchange(session, command, "list the runs of machine", machine)) {
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
    instances = std::move(all);
    return true;
}

}  // namespace dorvo
