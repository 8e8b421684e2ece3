// The requests of a restore: its start, a backup's files and their blocks, its history.
//
// Only completed backups are read. Nothing of them changes or goes any more, nor do the packages
// that they share with other completed ones, so no request here waits for another. Each call throws
// ServiceError to refuse, and has then changed nothing. Any thread.
#pragma once

#include <boost/json/fwd.hpp>
#include <chrono>
#include <map>
#include <mutex>
#include <span>
#include <string>

#include "catalog/instances.h"
#include "catalog/restores.h"
#include "packages/block_store.h"
#include "packages/disk_room.h"

namespace dorvo {

class RestoreEndpoints {
public:
    // Borrows all.
    RestoreEndpoints(Instances& instances, Restores& restores, BlockStore& blocks, DiskRoom& room)
        : instances_(instances), restores_(restores), blocks_(blocks), room_(room) {}

    boost::json::object startRestoreJob(const Session& session, const boost::json::object& body);
    boost::json::object getFileInfo(const Session& session, const boost::json::object& body);
    // Not JSON: the MD5 of the block's bytes as 32 hexadecimal digits, then the bytes.
    std::string downloadFileBlock(const Session& session, const boost::json::object& body);
    boost::json::object listFiles(const Session& session, const boost::json::object& body);
    boost::json::object restoreJobHistory(const Session& session, const boost::json::object& body);

private:
    // The completed backup that the request names, made on the machine that it names.
    Instance machinesBackup(const Session& session, const boost::json::object& body);
    // The file of it that the request names.
    StoredFile storedFile(const Session& session, const boost::json::object& body);
    // Fills the buffer with the file's block of that number, and gives its MD5. Throws when these
    // are not the bytes that were stored.
    std::string readBlock(const StoredFile& file, uint64_t number, std::span<char> bytes);
    // Remembers that the package is damaged, and throws.
    [[noreturn]] void refuseDamaged(const StoredFile& file, uint64_t block);
    // countLost() of what was asked about lately as it was then: a client asks at the end of each
    // of its lists, of which a restore can have thousands.
    int64_t lostOf(const Instance& backup);

    Instances& instances_;
    Restores& restores_;
    BlockStore& blocks_;
    DiskRoom& room_;
    struct Lost {
        int64_t items = 0;
        std::chrono::steady_clock::time_point since;
    };
    std::mutex mutex_;  // guards lost_
    std::map<int64_t, Lost> lost_;
};

}  // namespace dorvo
