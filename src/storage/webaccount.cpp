#include "storage/webaccount.h"

#include <windows.h>

#include <stdexcept>

#include "base/last_error.h"
#include "base/log.h"
#include "http_util/command_to_server.h"
#include "http_util/web_server_invoker.h"
#include "httpmsg/http_names.h"
#include "settings/options.h"
#include "storage/backupstorage.h"

namespace dorvo {
namespace {

constexpr int statusOk = 200;

class Login_Request : public Request_T<json_spirit::Value> {
public:
    Login_Request() : Request_T("/dorvo/WebServer/user/Login.php") {}
};

class List_Instances_Request : public Request_T<json_spirit::Value> {
public:
    List_Instances_Request() : Request_T("/dorvo/WebServer/catalog/ListInstances.php") {}
};

// Runs one command on a connection to the server of the options. True for a 200.
template <class Exchange>
bool exchange(Exchange& command) {
    std::string host;
    unsigned short port = 0;
    ATL::CComSingleton<OptionsImpl, ATL::CComAutoCriticalSection>::instance()->getServerInfo(host,
                                                                                             port);
    Web_Server_Invoker invoker;
    if (!invoker.set_server(host.c_str(), port, 0)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    if (invoker.run(command) != 0) {
        return false;
    }
    const int status = command.response().status();
    if (status != statusOk) {
        log(LogLevel::error, "%C: the server answered %d, %C.\n", command.name().c_str(), status,
            http_status_string(status));
        SetLastError(httpError(static_cast<unsigned>(status)));
        return false;
    }
    return true;
}

WebInstance readInstance(const json_spirit::Object& members) {
    const auto number = [&](const char* name) { return members.at(name).get_uint64(); };
    const auto text = [&](const char* name) {
        return json_spirit::object_get_str_or_throw(members, name);
    };
    return {.machine = text("machine"),
            .jobDefinitionId = text("jobdefinitionid"),
            .jobInstanceId = text("jobinstanceid"),
            .startTime = text("starttime"),
            .endTime = text("endtime"),
            .state = text("state"),
            .totalFiles = number("totalfiles"),
            .totalDirectories = number("totaldirectories"),
            .totalSize = number("totalsize"),
            .errors = number("errors")};
}

}  // namespace

bool WebAccount::login(const std::string& user, const std::string& password,
                       const std::string& machine, std::string& cookie) {
    Command_To_Server<Login_Request, Response_T<std::string>> command("Login");
    command.request().body(
        json_spirit::Object{{"user", user}, {"password", password}, {"machine", machine}});
    if (!exchange(command)) {
        return false;
    }
    const char* const sent = command.response().set_cookie();
    if (sent == nullptr || *sent == '\0') {
        log(LogLevel::error, "Login: the server sent no cookie.\n");
        SetLastError(ERROR_INVALID_DATA);
        return false;
    }
    cookie = sent;
    return true;
}

bool WebAccount::listInstances(const std::string& cookie, const std::string& machine,
                               const std::string& jobDefinitionId,
                               std::vector<WebInstance>& instances) {
    Command_To_Server<List_Instances_Request, Response_T<json_spirit::Value>> command(
        "List Instances");
    command.request().cookie(cookie.c_str());
    command.request().body(
        json_spirit::Object{{"machine", machine}, {"jobdefinitionid", jobDefinitionId}});
    if (!exchange(command)) {
        return false;
    }
    if (!readInstances(command.response().body(), instances)) {
        log(LogLevel::error, "List Instances: the answer is not of its shape.\n");
        SetLastError(ERROR_INVALID_DATA);
        return false;
    }
    return true;
}

bool WebAccount::readInstances(const json_spirit::Value& answer,
                               std::vector<WebInstance>& instances) {
    try {
        std::vector<WebInstance> read;
        for (const json_spirit::Value& entry : answer.get_obj().at("instances").get_array()) {
            read.push_back(readInstance(entry.get_obj()));
        }
        instances = std::move(read);
        return true;
    } catch (const std::logic_error&) {  // a member is missing
        return false;
    } catch (const std::runtime_error&) {  // a member is of another type
        return false;
    }
}

}  // namespace dorvo
