// What a restore needs of the catalog: a backup's files in order, and the restores themselves.
#include "catalog/sqlite_catalog.h"
#include "catalog/sqlite_file.h"
#include "catalog/sqlite_statements.h"

namespace dorvo {

FilePage SqliteCatalog::listFiles(int64_t instance, std::string_view from, std::string_view until,
                                  size_t limit, size_t bytes) {
    const DatabaseTurn mine = turn();
    FilePage page;
    size_t taken = 0;
    // One row more than wanted tells whether there is more.
    auto rows = statements_->listFiles.query(instance, Blob{from}, Blob{until},
                                             static_cast<int64_t>(limit) + 1);
    for (size_t count = 0; rows.next(); ++count) {
        if (count == limit || taken >= bytes) {
            page.more = true;
            break;
        }
        page.last = rows.text(0);
        taken += page.last.size();
        const StoredFile file = sqliteFile(rows);
        if (file.sound) {
            page.files.push_back({page.last, file.kind, file.attributes});
        }
    }
    return page;
}

void SqliteCatalog::openRestore(const Session& session, std::string_view name,
                                std::string_view definition, int64_t instance, size_t kept) {
    std::vector<int64_t> old;
    write([&] {
        statements_->openRestore.run(name, session.machineId, definition, instance);
        auto rows = statements_->listOldRestores.query(session.userId, static_cast<int64_t>(kept));
        while (rows.next()) {
            old.push_back(rows.integer(0));
        }
    });
    for (const int64_t restore : old) {
        dropRestore(restore);
    }
}

// The restore itself last: what a death in between leaves is dropped by the next.
void SqliteCatalog::dropRestore(int64_t restore) {
    inPieces(Access::write, [&] {
        statements_->dropRestoreErrors.run(restore);
        if (database_.changes() != 0) {
            return true;
        }
        statements_->dropRestore.run(restore);
        return false;
    });
}

std::optional<Restore> SqliteCatalog::findRestore(std::string_view name) {
    const DatabaseTurn mine = turn();
    auto rows = statements_->findRestore.query(name);
    return rows.next() ? std::optional(Restore{rows.integer(0), rows.integer(1)}) : std::nullopt;
}

void SqliteCatalog::putHistory(int64_t restore, std::string_view history) {
    write([&] { statements_->putHistory.run(restore, history); });
}

}  // namespace dorvo
