#include "dispatcher.h"

#include <algorithm>
#include <boost/json.hpp>
#include <iostream>

#include "json_body.h"
#include "service_error.h"

namespace dorvo {

namespace json = boost::json;

namespace {

constexpr size_t smallBody = size_t{1} << 20U;
// A thousand paths of ordinary length take a few hundred kilobytes; lists of failed files, and
// paths of extraordinary length, take more.
constexpr size_t listBody = size_t{32} << 20U;

using JsonCall = json::object (BackupEndpoints::*)(const Session&, const json::object&);

}  // namespace

struct Dispatcher::Endpoint {
    std::string_view path;
    size_t bodyLimit;
    WebReply (*call)(Dispatcher&, const WebRequest&);

    template <WebReply (AccountEndpoints::*method)(const WebRequest&)>
    static WebReply open(Dispatcher& dispatcher, const WebRequest& request) {
        return (dispatcher.accounts_.*method)(request);
    }

    // What needs a session; the user is in the log even when the request is refused.
    template <class Call>
    static WebReply inSession(Dispatcher& dispatcher, const WebRequest& request, const Call& call) {
        const auto session = dispatcher.accounts_.session(request.cookie);
        if (!session) {
            throw ServiceError(401, "no valid session");
        }
        WebReply reply;
        try {
            reply.body = call(*session);
        } catch (const ServiceError& error) {
            reply = errorReply(error.status(), error.what());
        }
        reply.user = session->user;
        return reply;
    }

    static WebReply logout(Dispatcher& dispatcher, const WebRequest& request) {
        return inSession(dispatcher, request,
                         [&](const Session&) { return dispatcher.accounts_.logout(request).body; });
    }

    template <JsonCall method>
    static WebReply backup(Dispatcher& dispatcher, const WebRequest& request) {
        return inSession(dispatcher, request, [&](const Session& session) {
            const json::object body = parseBody(request.body);
            return json::serialize((dispatcher.backups_.*method)(session, body));
        });
    }

    static WebReply uploadBlock(Dispatcher& dispatcher, const WebRequest& request) {
        return inSession(dispatcher, request, [&](const Session& session) {
            return json::serialize(
                dispatcher.backups_.uploadBlock(session, request.contentType, request.body));
        });
    }
};

const Dispatcher::Endpoint* Dispatcher::find(std::string_view path) {
    using B = BackupEndpoints;
    static constexpr Endpoint table[] = {
        {"/dorvo/WebServer/user/Login.php", smallBody, &Endpoint::open<&AccountEndpoints::login>},
        {"/dorvo/WebServer/user/Logout.php", smallBody, &Endpoint::logout},
        {"/dorvo/WebServer/catalog/FilesToBackup.php", listBody,
         &Endpoint::backup<&B::filesToBackup>},
        {"/dorvo/WebServer/catalog/ListInstances.php", smallBody,
         &Endpoint::backup<&B::listInstances>},
        {"/dorvo/WebServer/jobs/StartJob.php", smallBody, &Endpoint::backup<&B::startJob>},
        {"/dorvo/Storage Server/backupServer/uploadfile.php", smallBody,
         &Endpoint::backup<&B::uploadFile>},
        {"/dorvo/Storage Server/backupServer/uploadblock.php", smallBody, &Endpoint::uploadBlock},
        {"/dorvo/WebServer/jobs/AddErrorFiles.php", listBody, &Endpoint::backup<&B::addErrorFiles>},
        {"/dorvo/Storage Server/backupServer/endjob.php", smallBody, &Endpoint::backup<&B::endJob>},
        {"/dorvo/WebServer/jobs/CancelJob.php", smallBody, &Endpoint::backup<&B::cancelJob>},
    };
    const auto* const found = std::find_if(std::begin(table), std::end(table),
                                           [path](const Endpoint& e) { return e.path == path; });
    return found == std::end(table) ? nullptr : found;
}

WebReply errorReply(int status, const std::string& why) {
    WebReply reply;
    reply.status = status;
    reply.body = json::serialize(json::object{{"error", why}});
    return reply;
}

size_t Dispatcher::bodyLimit(std::string_view path) {
    const Endpoint* endpoint = find(path);
    return endpoint != nullptr ? endpoint->bodyLimit : 0;
}

bool Dispatcher::authorised(std::string_view cookie) {
    try {
        return accounts_.session(cookie).has_value();
    } catch (const std::exception&) {
        return false;
    }
}

WebReply Dispatcher::handle(const WebRequest& request) {
    try {
        const Endpoint* endpoint = find(request.path);
        if (endpoint == nullptr) {
            return errorReply(404, "no such path");
        }
        return endpoint->call(*this, request);
    } catch (const ServiceError& error) {
        return errorReply(error.status(), error.what());
    } catch (const std::exception& error) {
        std::cerr << request.path + ": " + error.what() + "\n";
        return errorReply(503, "the storage is not available");
    }
}

}  // namespace dorvo
