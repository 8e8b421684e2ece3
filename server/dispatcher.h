// Takes a request to its endpoint: one table of all paths, and the rules they share.
#pragma once

#include <string_view>

#include "catalog/catalog.h"
#include "endpoints/account_endpoints.h"
#include "endpoints/backup_endpoints.h"
#include "endpoints/restore_endpoints.h"
#include "httpd/http_service.h"
#include "late_work.h"

namespace dorvo {

// Backups of different users share a disk: more would only make each of them slower.
inline constexpr size_t endingThreads = 4;

class Dispatcher : public HttpService {
public:
    // Borrows all. The lifetime of sessions is in seconds.
    Dispatcher(Catalog& catalog, BlockStore& blocks, DiskRoom& room, int64_t sessionLifetime);

    Admission admit(const WebRequest& head) override;
    // All but small bodies are taken in only from those who are logged in.
    std::optional<WebReply> judgeLargeBody(const WebRequest& head) override;
    // Has answered when it returns, but to logins and to what ends a backup.
    std::optional<LongPoll> handle(const WebRequest& request, Respond respond) override;
    WebReply refuse(int status, const char* why) override;

    // Finishes the logins and the ends of backups that have begun. The HTTP server has been
    // stopped.
    void stop();
    // As BackupEndpoints.
    void giveUp(int64_t instance, int64_t idle) { backups_.giveUp(instance, idle); }

private:
    struct Endpoint;
    static const Endpoint* find(std::string_view path);

    DiskRoom& room_;
    AccountEndpoints accounts_;
    BackupEndpoints backups_;
    RestoreEndpoints restores_;
    // Their threads call the endpoints.
    LateWork logins_;
    LateWork endings_;
};

}  // namespace dorvo
