// The requests of a backup, from the increment check to its end, and the list of backups.
//
// A backup instance is opened as pending, started, filled and completed or cancelled; each request
// says in its answer's status when it does not suit the state. Requests of one instance run one at
// a time, those of different ones side by side. Each call throws ServiceError to refuse, and has
// then changed nothing. Any thread.
#pragma once

#include <boost/json/fwd.hpp>
#include <functional>
#include <string_view>
#include <utility>

#include "catalog/instances.h"
#include "catalog/restores.h"
#include "endpoints/instance_locks.h"
#include "packages/block_store.h"
#include "packages/disk_room.h"

namespace dorvo {

class BackupEndpoints {
public:
    // What is left of a request that may take long, to be called by any thread, again if it throws;
    // empty: the answer is {} already. It holds the backup's lock until it is destroyed.
    using Rest = std::function<boost::json::object()>;

    // Has freeGivenUp() called soon, by somebody who has the time: a container can be large.
    using FreeSoon = std::function<void()>;

    // Borrows all.
    BackupEndpoints(Instances& instances, Restores& restores, BlockStore& blocks, DiskRoom& room,
                    FreeSoon freeSoon)
        : instances_(instances),
          restores_(restores),
          blocks_(blocks),
          room_(room),
          freeSoon_(std::move(freeSoon)) {}

    boost::json::object filesToBackup(const Session& session, const boost::json::object& body);
    boost::json::object startJob(const Session& session, const boost::json::object& body);
    boost::json::object uploadFile(const Session& session, const boost::json::object& body);
    // The one request whose body is no JSON but a multipart form.
    boost::json::object uploadBlock(const Session& session, std::string_view contentType,
                                    std::string_view form);
    // Also for a restore, by the restore's own id.
    boost::json::object addErrorFiles(const Session& session, const boost::json::object& body);
    Rest endJob(const Session& session, const boost::json::object& body);
    Rest cancelJob(const Session& session, const boost::json::object& body);
    // No request: cancels a backup that is under way and has been idle for so many seconds.
    void giveUp(int64_t instance, int64_t idle);
    boost::json::object listInstances(const Session& session, const boost::json::object& body);

private:
    // The user's own instance, made pending when it does not exist; the definition must be its own.
    // `stores`: more is to be stored in it.
    Instance openOrFind(const Session& session, std::string_view name, std::string_view definition,
                        bool compress, bool stores);
    // The data is what is stored as block k of the file.
    bool holds(const StoredFile& file, int64_t k, std::string_view data);
    // Ends the backup and frees what it has; called again it goes on.
    void cancel(int64_t instance);
    // Completes a backup that may be completed.
    void complete(const Instance& instance, std::string_view endTime);

    Instances& instances_;
    Restores& restores_;
    BlockStore& blocks_;
    DiskRoom& room_;
    const FreeSoon freeSoon_;
    InstanceLocks locks_;
};

}  // namespace dorvo
