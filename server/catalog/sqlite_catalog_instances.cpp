// Backups in the catalog: instances, their files and errors, one at a time. What concerns all files
// of a backup is in sqlite_catalog_pieces.cpp.
#include <stdexcept>

#include "catalog/sqlite_catalog.h"
#include "catalog/sqlite_file.h"
#include "catalog/sqlite_statements.h"

namespace dorvo {

namespace {

std::optional<Instance> readInstance(Rows rows) {
    if (!rows.next()) {
        return std::nullopt;
    }
    Instance instance;
    instance.id = rows.integer(0);
    instance.name = rows.text(1);
    instance.userId = rows.integer(2);
    instance.machine = rows.text(3);
    instance.definition = rows.text(4);
    instance.state = static_cast<InstanceState>(rows.integer(5));
    instance.damaged = rows.integer(6) != 0;
    instance.compress = rows.integer(7) != 0;
    instance.totals = {rows.integer(8), rows.integer(9), rows.integer(10)};
    instance.items = rows.integer(11);
    instance.idle = rows.integer(12);
    return instance;
}

}  // namespace

std::optional<Instance> SqliteCatalog::findInstance(int64_t user, std::string_view name) {
    const DatabaseTurn mine = turn();
    return readInstance(statements_->findInstanceByName.query(user, name));
}

std::optional<Instance> SqliteCatalog::findInstance(int64_t id) {
    const DatabaseTurn mine = turn();
    return readInstance(statements_->findInstanceById.query(id));
}

std::vector<int64_t> SqliteCatalog::listIdle(int64_t passed, int64_t limit) {
    std::vector<int64_t> list;
    write([&] {
        statements_->passTime.run(passed);
        for (auto rows = statements_->listIdle.query(limit); rows.next();) {
            list.push_back(rows.integer(0));
        }
    });
    return list;
}

void SqliteCatalog::useInstance(int64_t instance) {
    write([&] { statements_->useInstance.run(instance); });
}

Instance SqliteCatalog::openInstance(const Session& session, std::string_view name,
                                     std::string_view definition, bool compress) {
    durably([&] {
        statements_->openInstance.run(name, session.machineId, definition, int64_t{compress},
                                      session.userId);
    });
    const auto instance = findInstance(session.userId, name);
    if (!instance) {
        throw std::runtime_error("database: a new backup is not there");
    }
    return *instance;
}

void SqliteCatalog::startInstance(int64_t instance, std::string_view startTime,
                                  const InstanceTotals& totals) {
    durably([&] {
        statements_->startInstance.run(instance, startTime, totals.files, totals.directories,
                                       totals.size);
    });
}

std::optional<StoredFile> SqliteCatalog::findFile(int64_t instance, std::string_view path) {
    const DatabaseTurn mine = turn();
    auto rows = statements_->findFile.query(instance, Blob{path});
    if (!rows.next()) {
        return std::nullopt;
    }
    return sqliteFile(rows);
}

void SqliteCatalog::storeFile(int64_t instance, std::string_view path, const StoredFile& file) {
    const std::string_view attributes(reinterpret_cast<const char*>(file.attributes.data()),
                                      sizeof file.attributes);
    statements_->putFile.run(instance, Blob{path}, static_cast<int64_t>(file.kind),
                             Blob{attributes}, file.mtime, int64_t{file.compress}, file.size,
                             file.blocks, file.container, file.offset, sqliteSeal(path, file));
}

void SqliteCatalog::putFile(int64_t instance, std::string_view path, const StoredFile& file) {
    write([&] { storeFile(instance, path, file); });
}

void SqliteCatalog::placeFile(int64_t instance, std::string_view path, StoredFile file,
                              int64_t limit) {
    write([&] {
        file.container = 0;
        file.offset = 0;
        {
            auto rows = statements_->newestContainer.query(instance);
            if (rows.next() && file.size <= limit - rows.integer(1)) {
                file.container = rows.integer(0);
                file.offset = rows.integer(1);
            }
        }
        if (file.container != 0) {
            statements_->setGiven.run(file.container, file.offset + file.size);
        } else {
            statements_->addContainer.run(instance, file.size);
            file.container = database_.lastRowId();
        }
        storeFile(instance, path, file);
    });
}

void SqliteCatalog::damageInstance(int64_t instance) {
    write([&] { statements_->damageInstance.run(instance); });
}

void SqliteCatalog::damageContainer(int64_t container) {
    write([&] { statements_->damageContainer.run(container); });
}

void SqliteCatalog::giveUpContainers(int64_t instance) {
    statements_->giveUp.run(instance);
    statements_->dropContainers.run(instance);
}

std::vector<int64_t> SqliteCatalog::listGivenUp() {
    const DatabaseTurn mine = turn();
    std::vector<int64_t> list;
    for (auto rows = statements_->listGivenUp.query(); rows.next();) {
        list.push_back(rows.integer(0));
    }
    return list;
}

bool SqliteCatalog::hasError(int64_t instance, std::string_view path) {
    const DatabaseTurn mine = turn();
    return statements_->hasError.query(instance, Blob{path}).next();
}

std::vector<InstanceSummary> SqliteCatalog::listInstances(int64_t user, std::string_view machine,
                                                          std::string_view definition,
                                                          int64_t after, size_t limit) {
    const DatabaseTurn mine = turn();
    std::vector<InstanceSummary> list;
    auto rows = statements_->listInstances.query(user, machine, definition, after,
                                                 static_cast<int64_t>(limit));
    while (rows.next()) {
        list.push_back({rows.integer(10),
                        std::string(rows.text(0)),
                        std::string(rows.text(1)),
                        std::string(rows.text(2)),
                        std::string(rows.text(3)),
                        std::string(rows.text(4)),
                        static_cast<InstanceState>(rows.integer(5)),
                        {rows.integer(6), rows.integer(7), rows.integer(8)},
                        rows.integer(9)});
    }
    return list;
}

int64_t SqliteCatalog::countErrors(int64_t instance) {
    const DatabaseTurn mine = turn();
    auto rows = statements_->countErrors.query(instance);
    return rows.next() ? rows.integer(0) : 0;
}

}  // namespace dorvo
