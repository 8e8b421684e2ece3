// The database itself, accounts and sessions. Backups are in sqlite_catalog_instances.cpp.
#include "catalog/sqlite_catalog.h"

#include <sqlite3.h>

#include <stdexcept>
#include <utility>

#include "catalog/checkpointer.h"
#include "catalog/sqlite_statements.h"
#include "catalog/sqlite_versions.h"
#include "common/files.h"

namespace dorvo {

namespace {

// 16 MiB of log: large enough to write each page of the tree once for many commits.
constexpr int checkpointPages = 4096;

int onCommit(void* checkpointer, sqlite3*, const char*, int pages) {
    if (pages >= checkpointPages) {
        static_cast<Checkpointer*>(checkpointer)->poke();
    }
    return SQLITE_OK;
}

constexpr auto newest = static_cast<int64_t>(std::size(sqliteVersions));

int64_t versionOf(Database& database) {
    Statement statement(database, "PRAGMA user_version");
    auto rows = statement.query();
    return rows.next() ? rows.integer(0) : 0;
}

void bringUpToDate(Database& database) {
    int64_t version = versionOf(database);
    if (version > newest) {
        throw std::runtime_error("the database is of a later version of this program");
    }
    if (version == newest) {
        return;  // without a write, for which there may be no room
    }
    for (; version < newest; ++version) {
        database.exec(sqliteVersions[version]);
    }
    database.exec(("PRAGMA user_version=" + std::to_string(newest)).c_str());
}

}  // namespace

SqliteCatalog::SqliteCatalog(const std::string& path, Completed completed,
                             std::chrono::milliseconds patience)
    : path_(path), database_(path), completed_(std::move(completed)), patience_(patience) {
    database_.exec(
        "PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=0; PRAGMA synchronous=NORMAL;"
        "PRAGMA cache_size=-65536; PRAGMA temp_store=MEMORY;");
    durably([this] { bringUpToDate(database_); });
    statements_ = std::make_unique<SqliteStatements>(database_);
    checkpointer_ = std::make_unique<Checkpointer>(path, mutex_);
    sqlite3_wal_hook(database_.handle(), &onCommit, checkpointer_.get());
    database_.waitForNobody();
}

void SqliteCatalog::write(const std::function<void()>& change) {
    DatabaseTurn mine = turn(Access::write);
    change();
    mine.commit();
}

void SqliteCatalog::durably(const std::function<void()>& change) {
    DatabaseTurn mine = turn(Access::durable);
    change();
    mine.commit();
}

bool SqliteCatalog::isUpToDate(const std::string& path) {
    Database database(path);
    return versionOf(database) == newest;
}

SqliteCatalog::~SqliteCatalog() {
    sqlite3_wal_hook(database_.handle(), nullptr, nullptr);
}

void SqliteCatalog::beginService(std::string_view boot, std::string_view identity,
                                 int64_t generation) {
    durably([&] {
        // Versions without sync points left it to the disk when it kept what was offered and
        // announced, also of a run that was going on.
        Statement damage(database_,
                         "UPDATE instances SET damaged = 1 WHERE (state = 0 OR (state = 1 AND"
                         " (SELECT synced FROM service) = 0)) AND EXISTS"
                         " (SELECT 1 FROM service WHERE boot <> '' AND boot <> ?1)");
        damage.run(boot);
        Statement(database_,
                  "INSERT INTO service(one, boot, identity, generation) VALUES(1, ?1, ?2, ?3 + 1)"
                  " ON CONFLICT DO UPDATE SET boot = ?1, generation = max(generation, ?3) + 1,"
                  " identity = CASE ?2 WHEN '' THEN identity ELSE ?2 END")
            .run(boot, identity, generation);
    });
    const DatabaseTurn mine = turn();
    readSynced();
}

void SqliteCatalog::nextGeneration() {
    {
        const std::lock_guard lock(mutex_);
        if (database_.allChanges() == changesBefore_) {
            return;
        }
    }
    int64_t changes = 0;
    durably([&] {
        statements_->nextGeneration.run();
        changes = database_.allChanges();
    });
    const std::lock_guard lock(mutex_);
    changesBefore_ = changes;
}

void SqliteCatalog::everythingIsSynced() {
    // Stamps are two ahead at most.
    write([&] { database_.exec("UPDATE service SET synced = synced + 2"); });
    const DatabaseTurn mine = turn();
    readSynced();
}

SqliteCatalog::LastEnd SqliteCatalog::lastEnd(std::string_view boot) {
    const DatabaseTurn mine = turn();
    readSynced();
    Statement last(database_, "SELECT boot FROM service WHERE boot <> ''");
    auto rows = last.query();
    if (!rows.next()) {
        return LastEnd::inOrder;
    }
    return rows.text(0) == boot ? LastEnd::died : LastEnd::lostPower;
}

void SqliteCatalog::readSynced() {
    Statement statement(database_, "SELECT synced FROM service");
    auto rows = statement.query();
    synced_ = rows.next() ? rows.integer(0) : 0;
    stamp_ = synced_ + 1;
}

void SqliteCatalog::endService() {
    durably([&] { database_.exec("UPDATE service SET boot = '', generation = generation + 1"); });
}

bool SqliteCatalog::addUser(std::string_view name, std::string_view passwordHash) {
    bool added = false;
    durably([&] {
        statements_->addUser.run(name, passwordHash);
        added = database_.changes() == 1;
    });
    return added;
}

std::optional<std::string> SqliteCatalog::findPassword(std::string_view user) {
    const DatabaseTurn mine = turn();
    auto rows = statements_->findPassword.query(user);
    return rows.next() ? std::optional<std::string>(rows.text(0)) : std::nullopt;
}

std::string SqliteCatalog::findKeys(int64_t user) {
    const DatabaseTurn mine = turn();
    auto rows = statements_->findKeys.query(user);
    return rows.next() ? std::string(rows.text(0)) : std::string();
}

bool SqliteCatalog::putKeys(int64_t user, std::string_view md5) {
    bool kept = false;
    durably([&] {
        statements_->putKeys.run(user, md5);
        kept = database_.changes() == 1;
    });
    return kept;
}

void SqliteCatalog::addSession(std::string_view tokenHash, std::string_view user,
                               std::string_view machine, int64_t now, int64_t lifetime) {
    write([&] {
        statements_->expireSessions.run(now, lifetime);
        statements_->addMachine.run(user, machine);
        statements_->addSession.run(Blob{tokenHash}, user, machine, now);
    });
}

std::optional<Session> SqliteCatalog::findSession(std::string_view tokenHash, int64_t now,
                                                  int64_t lifetime) {
    Session session;
    int64_t used = 0;
    {
        const DatabaseTurn mine = turn();
        auto rows = statements_->findSession.query(Blob{tokenHash});
        if (!rows.next()) {
            return std::nullopt;
        }
        session = {rows.integer(0), rows.integer(1), std::string(rows.text(2)),
                   std::string(rows.text(3))};
        used = rows.integer(4);
    }
    if (used + lifetime <= now) {
        return std::nullopt;
    }
    // Not at every request: a write costs more than all the rest of the look-up.
    if (now - used > lifetime / 64) {
        try {
            DatabaseTurn once(mutex_, database_, Access::write, {});
            statements_->useSession.run(Blob{tokenHash}, now);
            once.commit();
        } catch (const DiskFull&) {
            // It ends earlier then; what the session is for may be what makes room.
        } catch (const DatabaseBusy&) {
            // The next request says so: to read, nobody need wait.
        }
    }
    return session;
}

int64_t SqliteCatalog::lastUse() {
    const DatabaseTurn mine = turn();
    auto rows = statements_->lastUse.query();
    return rows.next() ? rows.integer(0) : 0;
}

void SqliteCatalog::removeSession(std::string_view tokenHash) {
    durably([&] { statements_->removeSession.run(Blob{tokenHash}); });
}

}  // namespace dorvo
