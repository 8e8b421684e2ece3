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
// Of a list's elements and their members.
constexpr size_t listValues = 500000;
// The body itself, and what its values and texts take at most.
constexpr size_t listWeight = 4;
// Names and a password, each byte of them escaped.
constexpr size_t loginBody = size_t{16} << 10U;
// What is taken in from anybody.
constexpr size_t strangersBody = size_t{16} << 10U;

// {"error": why}
WebReply errorReply(int status, const std::string& why) {
    WebReply reply;
    reply.status = status;
    reply.body = json::serialize(json::object{{"error", why}});
    return reply;
}

// {"error": why, "incomplete": [path]}
WebReply incompleteReply(const IncompleteBackup& error) {
    WebReply reply;
    reply.status = error.status();
    reply.body = json::serialize(
        json::object{{"error", error.what()},
                     {"incomplete", json::array(error.paths().begin(), error.paths().end())}});
    return reply;
}

WebReply faultReply(const WebRequest& request, const std::exception& error) {
    std::cerr << request.path + ": " + error.what() + "\n";
    return errorReply(503, "the storage is not available");
}

}  // namespace

struct Dispatcher::Endpoint {
    std::string_view path;
    size_t bodyLimit;
    WebReply (*handle)(Dispatcher&, const WebRequest&);

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
            call(*session, reply);
        } catch (const IncompleteBackup& error) {
            reply = incompleteReply(error);
        } catch (const ServiceError& error) {
            reply = errorReply(error.status(), error.what());
        }
        reply.user = session->user;
        reply.known = true;
        return reply;
    }

    static WebReply logout(Dispatcher& dispatcher, const WebRequest& request) {
        WebReply answer = inSession(dispatcher, request, [&](const Session&, WebReply& reply) {
            reply = dispatcher.accounts_.logout(request);
        });
        answer.known = false;
        return answer;
    }

    // JSON in, JSON out.
    template <auto endpoints, auto method>
    static WebReply call(Dispatcher& dispatcher, const WebRequest& request) {
        return inSession(dispatcher, request, [&](const Session& session, WebReply& reply) {
            const bool list = find(request.path)->bodyLimit == listBody;
            const json::object body = parseBody(request.body, list ? listValues : fewValues);
            reply.body = json::serialize(((dispatcher.*endpoints).*method)(session, body));
        });
    }

    static WebReply uploadBlock(Dispatcher& dispatcher, const WebRequest& request) {
        return inSession(dispatcher, request, [&](const Session& session, WebReply& reply) {
            reply.body = json::serialize(
                dispatcher.backups_.uploadBlock(session, request.contentType, request.body));
        });
    }

    static WebReply downloadBlock(Dispatcher& dispatcher, const WebRequest& request) {
        return inSession(dispatcher, request, [&](const Session& session, WebReply& reply) {
            const json::object body = parseBody(request.body);
            reply.body = dispatcher.restores_.downloadFileBlock(session, body);
            reply.contentType = "application/octet-stream";
        });
    }

    template <auto method>
    static constexpr auto backup = &call<&Dispatcher::backups_, method>;
    template <auto method>
    static constexpr auto restore = &call<&Dispatcher::restores_, method>;
    template <auto method>
    static constexpr auto key = &call<&Dispatcher::keys_, method>;
};

const Dispatcher::Endpoint* Dispatcher::find(std::string_view path) {
    using B = BackupEndpoints;
    using R = RestoreEndpoints;
    using K = KeyEndpoints;
    static constexpr Endpoint table[] = {
        {"/dorvo/WebServer/user/Login.php", loginBody, &Endpoint::open<&AccountEndpoints::login>},
        {"/dorvo/WebServer/user/Logout.php", smallBody, &Endpoint::logout},
        {"/dorvo/WebServer/catalog/FilesToBackup.php", listBody,
         Endpoint::backup<&B::filesToBackup>},
        {"/dorvo/WebServer/catalog/ListInstances.php", smallBody,
         Endpoint::backup<&B::listInstances>},
        {"/dorvo/WebServer/jobs/StartJob.php", smallBody, Endpoint::backup<&B::startJob>},
        {"/dorvo/Storage Server/backupServer/uploadfile.php", smallBody,
         Endpoint::backup<&B::uploadFile>},
        {"/dorvo/Storage Server/backupServer/uploadblock.php", smallBody, &Endpoint::uploadBlock},
        {"/dorvo/WebServer/jobs/AddErrorFiles.php", listBody, Endpoint::backup<&B::addErrorFiles>},
        {"/dorvo/Storage Server/backupServer/endjob.php", smallBody, Endpoint::backup<&B::endJob>},
        {"/dorvo/WebServer/jobs/CancelJob.php", smallBody, Endpoint::backup<&B::cancelJob>},
        {"/dorvo/WebServer/jobs/StartRestoreJob.php", smallBody,
         Endpoint::restore<&R::startRestoreJob>},
        {"/dorvo/Storage Server/RestoreServer/GetFileInfo.php", smallBody,
         Endpoint::restore<&R::getFileInfo>},
        {"/dorvo/Storage Server/RestoreServer/DownloadFileBlock.php", smallBody,
         &Endpoint::downloadBlock},
        {"/dorvo/WebServer/jobs/RestoreJobHistory.php", smallBody,
         Endpoint::restore<&R::restoreJobHistory>},
        {"/dorvo/WebServer/catalog/ListFiles.php", smallBody, Endpoint::restore<&R::listFiles>},
        {"/dorvo/WebServer/keys/GetMD5ofKeys.php", smallBody, Endpoint::key<&K::getMd5OfKeys>},
        {"/dorvo/WebServer/keys/ExportMD5ofKeys.php", smallBody,
         Endpoint::key<&K::exportMd5OfKeys>},
    };
    const auto* const found = std::find_if(std::begin(table), std::end(table),
                                           [path](const Endpoint& e) { return e.path == path; });
    return found == std::end(table) ? nullptr : found;
}

Admission Dispatcher::admit(const WebRequest& head) {
    Admission admission;
    admission.known = head.known;
    admission.judgedBytes = head.known ? SIZE_MAX : strangersBody;
    if (head.method != "POST") {
        admission.refusal = errorReply(405, "only POST is served");
        admission.refusal->allow = "POST";
    } else if (const Endpoint* endpoint = find(head.path)) {
        admission.bodyLimit = endpoint->bodyLimit;
        admission.weight = endpoint->bodyLimit == listBody ? listWeight : 1;
    } else {
        admission.refusal = errorReply(404, "no such path");
    }
    return admission;
}

std::optional<WebReply> Dispatcher::judgeLargeBody(const WebRequest& head) {
    try {
        if (accounts_.session(head.cookie)) {
            return {};
        }
    } catch (const std::exception& error) {
        return faultReply(head, error);
    }
    return errorReply(401, "no valid session");
}

WebReply Dispatcher::refuse(int status, const char* why) {
    return errorReply(status, why);
}

std::optional<LongPoll> Dispatcher::handle(const WebRequest& request, Respond respond) {
    respond(answer(request));
    return {};
}

WebReply Dispatcher::answer(const WebRequest& request) {
    try {
        const Endpoint* endpoint = find(request.path);
        if (endpoint == nullptr) {
            return errorReply(404, "no such path");
        }
        return endpoint->handle(*this, request);
    } catch (const ServiceError& error) {
        WebReply reply = errorReply(error.status(), error.what());
        if (error.status() == 401) {
            reply.known = false;
        }
        return reply;
    } catch (const std::exception& error) {
        return faultReply(request, error);
    }
}

}  // namespace dorvo
