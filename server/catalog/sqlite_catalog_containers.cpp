// What the start of the service asks of the catalog about containers.
#include "catalog/sqlite_catalog.h"
#include "catalog/sqlite_statements.h"

namespace dorvo {

SqliteCatalog::Service SqliteCatalog::service() {
    const std::lock_guard lock(mutex_);
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
    const std::lock_guard lock(mutex_);
    Statement first(database_, "SELECT 1 FROM files WHERE blocks > 0 LIMIT 1");
    return first.query().next();
}

std::vector<SqliteCatalog::Container> SqliteCatalog::listContainers() {
    const std::lock_guard lock(mutex_);
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
