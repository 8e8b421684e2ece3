// Takes a request to its endpoint: one table of all paths, and the rules they share.
#pragma once

#include <string_view>

#include "account_endpoints.h"
#include "backup_endpoints.h"
#include "httpd/http_service.h"
#include "key_endpoints.h"
#include "restore_endpoints.h"

namespace dorvo {

class Dispatcher : public HttpService {
public:
    // Borrows both. The lifetime of sessions is in seconds.
    Dispatcher(Catalog& catalog, BlockStore& blocks, int64_t sessionLifetime)
        : accounts_(catalog, sessionLifetime),
          backups_(catalog, blocks),
          restores_(catalog, blocks),
          keys_(catalog) {}

    Admission admit(const WebRequest& head) override;
    // All but small bodies are taken in only from those who are logged in.
    std::optional<WebReply> judgeLargeBody(const WebRequest& head) override;
    // Has always answered when it returns.
    std::optional<LongPoll> handle(const WebRequest& request, Respond respond) override;
    WebReply refuse(int status, const char* why) override;

private:
    struct Endpoint;
    static const Endpoint* find(std::string_view path);
    WebReply answer(const WebRequest& request);

    AccountEndpoints accounts_;
    BackupEndpoints backups_;
    RestoreEndpoints restores_;
    KeyEndpoints keys_;
};

}  // namespace dorvo
