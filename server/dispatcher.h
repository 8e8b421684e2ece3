// Takes a request to its endpoint: one table of all paths, and the rules they share.
//
// handle blocks and may be called from any thread.
#pragma once

#include <cstddef>
#include <string_view>

#include "account_endpoints.h"
#include "backup_endpoints.h"
#include "key_endpoints.h"
#include "restore_endpoints.h"
#include "web_request.h"

namespace dorvo {

class Dispatcher {
public:
    // Borrows both. The lifetime of sessions is in seconds.
    Dispatcher(Catalog& catalog, BlockStore& blocks, int64_t sessionLifetime)
        : accounts_(catalog, sessionLifetime),
          backups_(catalog, blocks),
          restores_(catalog, blocks),
          keys_(catalog) {}

    // The largest body the path takes; 0 when there is nothing under that path.
    static size_t bodyLimit(std::string_view path);

    // Whether the cookie stands for a session, to know before a large body is taken in.
    bool authorised(std::string_view cookie);

    // Never throws: refusals and faults are answers too.
    WebReply handle(const WebRequest& request);

private:
    struct Endpoint;
    static const Endpoint* find(std::string_view path);

    AccountEndpoints accounts_;
    BackupEndpoints backups_;
    RestoreEndpoints restores_;
    KeyEndpoints keys_;
};

}  // namespace dorvo
