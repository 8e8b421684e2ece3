#include "dispatcher.h"

#include <algorithm>
#include <boost/json.hpp>

#include "common/files.h"
#include "common/service_error.h"
#include "common/service_log.h"
#include "endpoints/json_body.h"
#include "httpd/client_address.h"
#include "packages/backup_packages.h"

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

// What is busy now may not be so soon; clients that know of it wait that long.
constexpr int busySeconds = 5;

// {"error": why}
WebReply errorReply(int status, const std::string& why) {
    WebReply reply;
    reply.status = status;
    reply.retryAfter = status == 503 ? busySeconds : 0;
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

WebReply faultReply(const std::string& path, const std::exception& error) {
    logEvent("fault in " + path + ": " + error.what());
    const bool full = dynamic_cast<const DiskFull*>(&error) != nullptr;
    return errorReply(503, full ? "the server's disk is full" : "the storage is not available");
}

// What the call gives, or the answer to its refusal or fault. The path is for the log. With a room
// the call is one of those for which it gives way.
template <class Call>
WebReply judged(DiskRoom* room, const std::string& path, const Call& call) {
    try {
        return room == nullptr ? call() : room->givingWay(call);
    } catch (const IncompleteBackup& error) {
        return incompleteReply(error);
    } catch (const ServiceError& error) {
        WebReply reply = errorReply(error.status(), error.what());
        if (error.status() == 401) {
            reply.known = false;
        }
        return reply;
    } catch (const std::exception& error) {
        return faultReply(path, error);
    }
}

// One thread, which gives way: who tries out passwords must not take the processors from others.
LateWork::Options loginOptions() {
    return {.threads = 1, .waiting = 64, .nice = 10, .full = errorReply(503, "too many logins")};
}

}  // namespace

struct Dispatcher::Endpoint {
    std::string_view path;
    size_t bodyLimit;
    WebReply (*handle)(Dispatcher&, const Endpoint&, const WebRequest&);
    // In place of it for what is finished later.
    std::optional<LongPoll> (*begin)(Dispatcher&, const WebRequest&, Respond) = nullptr;
    // It stores more: the room that is held is not for it.
    bool stores = false;

    static std::optional<LongPoll> login(Dispatcher& dispatcher, const WebRequest& request,
                                         Respond respond) {
        AccountEndpoints::Login login;
        WebReply refusal = judged(&dispatcher.room_, request.path, [&] {
            login = dispatcher.accounts_.login(request);
            return WebReply();
        });
        if (!login.check) {
            respond(std::move(refusal));
            return {};
        }
        return dispatcher.logins_.run(
            login.network, login.user,
            [&dispatcher, path = request.path, check = std::move(login.check)] {
                return judged(&dispatcher.room_, path, check);
            },
            std::move(respond));
    }

    // What needs a session; the user is in the log even when the request is refused.
    template <class Call>
    static WebReply inSession(Dispatcher& dispatcher, const WebRequest& request, DiskRoom* room,
                              const Call& call) {
        const auto session = dispatcher.accounts_.session(request.cookie);
        if (!session) {
            throw ServiceError(401, "no valid session");
        }
        WebReply reply = judged(room, request.path, [&] {
            WebReply answer;
            call(*session, answer);
            return answer;
        });
        reply.user = session->user;
        reply.known = true;
        return reply;
    }

    DiskRoom* room(Dispatcher& dispatcher) const { return stores ? nullptr : &dispatcher.room_; }

    static WebReply logout(Dispatcher& dispatcher, const Endpoint& self,
                           const WebRequest& request) {
        WebReply answer = inSession(
            dispatcher, request, self.room(dispatcher),
            [&](const Session&, WebReply& reply) { reply = dispatcher.accounts_.logout(request); });
        answer.known = false;
        return answer;
    }

    // JSON in, JSON out.
    template <auto endpoints, auto method>
    static WebReply call(Dispatcher& dispatcher, const Endpoint& self, const WebRequest& request) {
        return inSession(
            dispatcher, request, self.room(dispatcher),
            [&](const Session& session, WebReply& reply) {
                const bool list = self.bodyLimit == listBody;
                const json::object body = parseBody(request.body, list ? listValues : fewValues);
                reply.body = json::serialize(((dispatcher.*endpoints).*method)(session, body));
            });
    }

    static WebReply uploadBlock(Dispatcher& dispatcher, const Endpoint& self,
                                const WebRequest& request) {
        return inSession(dispatcher, request, self.room(dispatcher),
                         [&](const Session& session, WebReply& reply) {
                             reply.body = json::serialize(dispatcher.backups_.uploadBlock(
                                 session, request.contentType, request.body));
                         });
    }

    static WebReply downloadBlock(Dispatcher& dispatcher, const Endpoint& self,
                                  const WebRequest& request) {
        return inSession(dispatcher, request, self.room(dispatcher),
                         [&](const Session& session, WebReply& reply) {
                             const json::object body = parseBody(request.body);
                             reply.body = dispatcher.restores_.downloadFileBlock(session, body);
                             reply.contentType = "application/octet-stream";
                         });
    }

    // What a backup's end needs is judged at once; what takes long comes when its turn has come.
    template <BackupEndpoints::Rest (BackupEndpoints::*method)(const Session&, const json::object&)>
    static std::optional<LongPoll> ending(Dispatcher& dispatcher, const WebRequest& request,
                                          Respond respond) {  // NOLINT: as the table has it
        BackupEndpoints::Rest rest;
        WebReply reply = judged(&dispatcher.room_, request.path, [&] {
            return inSession(
                dispatcher, request, &dispatcher.room_, [&](const Session& session, WebReply&) {
                    rest = (dispatcher.backups_.*method)(session, parseBody(request.body));
                });
        });
        if (!rest) {
            respond(std::move(reply));
            return {};
        }
        return dispatcher.endings_.run(
            clientNetwork(request.peer), reply.user,
            [&dispatcher, path = request.path, user = reply.user, rest = std::move(rest)] {
                WebReply done = judged(&dispatcher.room_, path, [&rest] {
                    WebReply answer;
                    answer.body = json::serialize(rest());
                    return answer;
                });
                done.user = user;
                done.known = true;
                return done;
            },
            std::move(respond));
    }

    template <auto method>
    static constexpr auto backup = &call<&Dispatcher::backups_, method>;
    template <auto method>
    static constexpr auto restore = &call<&Dispatcher::restores_, method>;
    template <auto method>
    static constexpr auto account = &call<&Dispatcher::accounts_, method>;
};

const Dispatcher::Endpoint* Dispatcher::find(std::string_view path) {
    using B = BackupEndpoints;
    using R = RestoreEndpoints;
    using A = AccountEndpoints;
    static constexpr Endpoint table[] = {
        {"/dorvo/WebServer/user/Login.php", loginBody, nullptr, &Endpoint::login},
        {"/dorvo/WebServer/user/Logout.php", smallBody, &Endpoint::logout},
        {"/dorvo/WebServer/catalog/FilesToBackup.php", listBody,
         Endpoint::backup<&B::filesToBackup>, nullptr, true},
        {"/dorvo/WebServer/catalog/ListInstances.php", smallBody,
         Endpoint::backup<&B::listInstances>},
        {"/dorvo/WebServer/jobs/StartJob.php", smallBody, Endpoint::backup<&B::startJob>},
        {"/dorvo/Storage Server/backupServer/uploadfile.php", smallBody,
         Endpoint::backup<&B::uploadFile>, nullptr, true},
        {"/dorvo/Storage Server/backupServer/uploadblock.php", smallBody, &Endpoint::uploadBlock,
         nullptr, true},
        {"/dorvo/WebServer/jobs/AddErrorFiles.php", listBody, Endpoint::backup<&B::addErrorFiles>},
        {"/dorvo/Storage Server/backupServer/endjob.php", smallBody, nullptr,
         &Endpoint::ending<&B::endJob>},
        {"/dorvo/WebServer/jobs/CancelJob.php", smallBody, nullptr,
         &Endpoint::ending<&B::cancelJob>},
        {"/dorvo/WebServer/jobs/StartRestoreJob.php", smallBody,
         Endpoint::restore<&R::startRestoreJob>},
        {"/dorvo/Storage Server/RestoreServer/GetFileInfo.php", smallBody,
         Endpoint::restore<&R::getFileInfo>},
        {"/dorvo/Storage Server/RestoreServer/DownloadFileBlock.php", smallBody,
         &Endpoint::downloadBlock},
        {"/dorvo/WebServer/jobs/RestoreJobHistory.php", smallBody,
         Endpoint::restore<&R::restoreJobHistory>},
        {"/dorvo/WebServer/catalog/ListFiles.php", smallBody, Endpoint::restore<&R::listFiles>},
        {"/dorvo/WebServer/keys/GetMD5ofKeys.php", smallBody, Endpoint::account<&A::getMd5OfKeys>},
        {"/dorvo/WebServer/keys/ExportMD5ofKeys.php", smallBody,
         Endpoint::account<&A::exportMd5OfKeys>},
    };
    const auto* const found = std::find_if(std::begin(table), std::end(table),
                                           [path](const Endpoint& e) { return e.path == path; });
    return found == std::end(table) ? nullptr : found;
}

Dispatcher::Dispatcher(Catalog& catalog, BlockStore& blocks, DiskRoom& room,
                       int64_t sessionLifetime)
    : room_(room),
      accounts_(catalog, sessionLifetime),
      backups_(catalog, catalog, blocks, room,
               [this, &catalog, &blocks] {
                   const auto work = [&catalog, &blocks] {
                       freeGivenUp(catalog, blocks);
                       return WebReply();
                   };
                   endings_.run({}, {}, work, {});
               }),
      restores_(catalog, catalog, blocks, room),
      logins_(loginOptions()),
      // Of these no more wait than there are connections.
      endings_({.threads = endingThreads}) {}

void Dispatcher::stop() {
    logins_.stop();
    endings_.stop();
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
    std::optional<WebReply> refusal;
    WebReply reply = judged(&room_, head.path, [&] {
        return accounts_.session(head.cookie) ? WebReply() : errorReply(401, "no valid session");
    });
    if (reply.status != 200) {
        refusal = std::move(reply);
    }
    return refusal;
}

WebReply Dispatcher::refuse(int status, const char* why) {
    return errorReply(status, why);
}

std::optional<LongPoll> Dispatcher::handle(const WebRequest& request, Respond respond) {
    const Endpoint* endpoint = find(request.path);
    if (endpoint != nullptr && endpoint->begin != nullptr) {
        return endpoint->begin(*this, request, std::move(respond));
    }
    respond(judged(&room_, request.path, [&] {
        return endpoint == nullptr ? errorReply(404, "no such path")
                                   : endpoint->handle(*this, *endpoint, request);
    }));
    return {};
}

}  // namespace dorvo
