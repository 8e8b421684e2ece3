// What the catalog knows of packages beside their places (the digests of their blocks, and damage),
// and what the start of the service asks of it about containers.
//
// The digests of up to 64 blocks stand in one row, under the place where the first of these blocks
// begins: a small package has one row, a large one is extended cheaply.
#include <fcntl.h>

#include <cerrno>
#include <system_error>

#include "catalog/sqlite_catalog.h"
#include "catalog/sqlite_file.h"
#include "catalog/sqlite_statements.h"
#include "common/files.h"

namespace dorvo {

namespace {

constexpr int64_t md5Bytes = 16;
constexpr int64_t groupBlocks = 64;
// How many rows are deleted before others have their turn.
constexpr int64_t deletedAtOnce = 4096;

// Where the digest of a package's block k is.
struct DigestPlace {
    int64_t position;
    int64_t begin;  // in the row's digests

    DigestPlace(const StoredFile& file, int64_t k)
        : position(file.offset + (k - 1) / groupBlocks * groupBlocks * blockBytes),
          begin((k - 1) % groupBlocks * md5Bytes) {}
};

}  // namespace

void SqliteCatalog::putBlock(int64_t instance, std::string_view path, const StoredFile& file,
                             int64_t k, std::string_view md5) {
    const DigestPlace place(file, k);
    write([&] {
        statements_->putDigest.run(file.container, place.position, stamp_, Blob{md5}, place.begin);
        statements_->setBlocks.run(instance, Blob{path}, k);
    });
}

void SqliteCatalog::dropBlocks(int64_t instance, const std::vector<KeptBlocks>& files) {
    durably([&] {
        for (const KeptBlocks& file : files) {
            statements_->setBlocks.run(instance, Blob{file.path}, file.blocks);
        }
    });
}

int64_t SqliteCatalog::beginSyncPoint() {
    const std::lock_guard lock(mutex_);
    // One that failed is begun again: no more than two stamps are ever ahead of what is synced.
    stamp_ = synced_ + 2;
    return synced_ + 1;
}

void SqliteCatalog::endSyncPoint(int64_t stamp) {
    write([&] { statements_->setSynced.run(stamp); });
    {
        const std::lock_guard lock(mutex_);
        synced_ = stamp;
    }
    // That the log keeps its order is all that this mark depends on.
    syncChanges();
}

void SqliteCatalog::syncChanges() {
    // Not under the lock, and not as a durable commit would: others go on meanwhile. What is not in
    // the log any more was synced when it was moved.
    const std::string path = path_ + "-wal";
    const FileDescriptor log(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!log && errno == ENOENT) {
        return;
    }
    if (!log || ::fdatasync(log.get()) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot sync " + path);
    }
}

std::optional<int64_t> SqliteCatalog::findUnsynced(const StoredFile& file) {
    const DatabaseTurn mine = turn();
    auto rows = statements_->findUnsynced.query(file.container, file.offset,
                                                file.offset + file.size, synced_);
    rows.next();
    return rows.isNull(0) ? std::nullopt
                          : std::optional((rows.integer(0) - file.offset) / blockBytes + 1);
}

std::vector<int64_t> SqliteCatalog::listRunning() {
    const DatabaseTurn mine = turn();
    std::vector<int64_t> list;
    for (auto rows = statements_->listRunning.query(); rows.next();) {
        list.push_back(rows.integer(0));
    }
    return list;
}

std::optional<std::string> SqliteCatalog::findDigest(const StoredFile& file, int64_t k) {
    const DigestPlace place(file, k);
    const DatabaseTurn mine = turn();
    auto rows = statements_->findDigest.query(file.container, place.position, place.begin + 1);
    rows.next();
    const bool kept = !rows.isNull(0) || rows.integer(1) != 0;
    return kept ? std::optional(std::string(rows.text(0))) : std::nullopt;
}

bool SqliteCatalog::damagePackage(const StoredFile& file) {
    bool news = false;
    write([&] {
        statements_->damagePackage.run(file.container, file.offset);
        news = database_.changes() == 1;
    });
    return news;
}

std::vector<CatalogItem> SqliteCatalog::listItems(int64_t instance, std::string_view after,
                                                  size_t limit) {
    std::vector<CatalogItem> items;
    TurnMutex::Debt debt;
    {
        const DatabaseTurn mine = turn();
        const auto begin = TurnMutex::Clock::now();
        auto rows =
            statements_->listItems.query(instance, Blob{after}, static_cast<int64_t>(limit));
        while (rows.next()) {
            items.push_back({std::string(rows.text(0)), sqliteFile(rows), rows.integer(11) != 0});
        }
        debt = mutex_.debt(begin);
    }
    if (items.size() == limit) {
        mutex_.giveWay(debt);
    }
    return items;
}

void SqliteCatalog::awaitAgain(int64_t instance, const std::vector<CatalogItem>& items) {
    write([&] {
        for (const CatalogItem& item : items) {
            if (item.file.sound && item.file.size > 0) {
                statements_->damagePackage.run(item.file.container, item.file.offset);
            }
            statements_->awaitAgain.run(instance, Blob{item.path});
        }
    });
}

void SqliteCatalog::forgetPackages(int64_t container) {
    inPieces(Access::write, [&] {
        statements_->dropDigests.run(container, deletedAtOnce);
        return database_.changes() == deletedAtOnce;
    });
    write([&] { statements_->forgetDamage.run(container); });
}

void SqliteCatalog::forgetGivenUp(int64_t container) {
    forgetPackages(container);
    write([&] { statements_->forgetGivenUp.run(container); });
}

void SqliteCatalog::forgetStrangers() {
    std::vector<int64_t> strangers;
    {
        const DatabaseTurn mine = turn();
        for (auto rows = statements_->listStrangers.query(); rows.next();) {
            strangers.push_back(rows.integer(0));
        }
    }
    for (const int64_t container : strangers) {
        forgetPackages(container);
    }
}

SqliteCatalog::Service SqliteCatalog::service() {
    const DatabaseTurn mine = turn();
    Service service;
    Statement row(database_, "SELECT identity, generation FROM service");
    if (auto rows = row.query(); rows.next()) {
        service.identity = rows.text(0);
        service.generation = rows.integer(1);
    }
    Statement first(database_, "SELECT id FROM instances LIMIT 1");
    service.empty = !first.query().next();
    return service;
}

bool SqliteCatalog::hasBlocks() {
    const DatabaseTurn mine = turn();
    Statement first(database_, "SELECT 1 FROM files WHERE blocks > 0 LIMIT 1");
    return first.query().next();
}

std::vector<SqliteCatalog::Container> SqliteCatalog::listContainers() {
    const DatabaseTurn mine = turn();
    std::vector<Container> list;
    Statement select(database_, "SELECT id, given FROM containers ORDER BY id");
    for (auto rows = select.query(); rows.next();) {
        list.push_back({rows.integer(0), rows.integer(1)});
    }
    return list;
}

void SqliteCatalog::takeInTail(int64_t container, int64_t length, bool keep) {
    durably([&] {
        Statement(database_, "UPDATE containers SET given = ?2, keep = keep OR ?3 WHERE id = ?1")
            .run(container, length, int64_t{keep});
    });
}

void SqliteCatalog::skipNumbers(int64_t container) {
    durably([&] {
        // The only way to have the sequence's row when there has been no container yet.
        Statement(database_,
                  "INSERT OR IGNORE INTO containers(id, instance, given) VALUES(?1, 0, 0)")
            .run(container);
        database_.exec("DELETE FROM containers WHERE instance = 0");
    });
}

std::vector<std::string> SqliteCatalog::abandonOpen() {
    std::vector<std::string> names;
    durably([&] {
        std::vector<int64_t> open;
        {
            Statement select(database_, "SELECT id, name FROM instances WHERE state < 2");
            for (auto rows = select.query(); rows.next();) {
                open.push_back(rows.integer(0));
                names.emplace_back(rows.text(1));
            }
        }
        for (const int64_t instance : open) {
            statements_->dropContainers.run(instance);
            statements_->cancelInstance.run(instance);
        }
    });
    return names;
}

}  // namespace dorvo
