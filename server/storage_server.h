// The whole service over one data folder: catalog, packages, endpoints and the HTTP server.
//
// Data folder: "catalog.db" (with "-wal" and "-shm" beside it), "packages/", "orphans/" for
// packages that the catalog did not know, and "lock", which is held by the one process that serves
// it. Accounts may be added by another process meanwhile.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "abandoned_runs.h"
#include "catalog/sqlite_catalog.h"
#include "common/files.h"
#include "common/service_log.h"
#include "dispatcher.h"
#include "generations.h"
#include "httpd/http_server.h"
#include "packages/disk_room.h"
#include "packages/file_block_store.h"
#include "packages/sync_points.h"

namespace dorvo {

// "1.2.3", as the build was told it.
extern const char* const serverVersion;

// Strangers get little time, and those of one address not every place. The machine itself is
// exempt: whatever makes a tunnel to the server is on it.
HttpLimits serviceLimits();

struct ServerOptions {
    std::filesystem::path data = "dorvo-data";
    std::string address = "127.0.0.1";
    uint16_t port = 8080;
    int64_t sessionLifetime = int64_t{30} * 24 * 3600;  // seconds of idleness
    HttpLimits limits = serviceLimits();
    int64_t containerBytes = FileBlockStore::usualLimit;
    SyncPoints::Pace syncPace{};
    std::chrono::milliseconds generationPace = std::chrono::seconds(30);
    std::chrono::seconds runLifetime = std::chrono::hours(30 * 24);  // of a run without requests
    std::optional<int64_t> reserve;  // bytes that uploads leave free, see DiskRoom
    DiskRoom::Source space;
    std::string boot;  // identity of the machine's boot; empty: ask the system
};

class StorageServer {
public:
    // Serves when it returns. Throws std::exception when it cannot, saying why.
    StorageServer(const ServerOptions& options, HttpLog log);
    // stop()
    ~StorageServer();
    StorageServer(const StorageServer&) = delete;
    StorageServer& operator=(const StorageServer&) = delete;

    [[nodiscard]] std::string endpoint() const { return http_->endpoint(); }
    [[nodiscard]] uint16_t port() const { return http_->port(); }

    // Lets requests in progress finish and makes everything durable. Idempotent.
    void stop();

private:
    void syncFileSystems() const;
    void beginToServe(const ServerOptions& options, HttpLog log);
    // Of all that is there.
    void end();
    void recordEnd();

    std::filesystem::path data_;
    FileDescriptor lock_;
    EventLog events_;
    FileBlockStore blocks_;
    DiskRoom room_;
    SqliteCatalog catalog_;
    std::unique_ptr<SyncPoints> syncPoints_;
    std::unique_ptr<Generations> generations_;
    Dispatcher dispatcher_;
    std::unique_ptr<AbandonedRuns> abandonedRuns_;
    std::unique_ptr<HttpServer> http_;
    bool stopped_ = false;
};

// Makes the data folder, if it isn't there, for its owner only, and gives the catalog's path in it.
std::string prepareDataFolder(const std::filesystem::path& data);

// Adds an account to the data folder's catalog, which another process may be serving. Throws
// std::exception with one sentence when the name or the password is unusable, the name is taken,
// the catalog is damaged or missing, or is served by a program of another version.
void addUser(const std::filesystem::path& data, const std::string& name,
             const std::string& password);

}  // namespace dorvo
