// Backups in the catalog: instances, their files and errors.
#include <stdexcept>

#include "sqlite_catalog.h"
#include "sqlite_durably.h"
#include "sqlite_statements.h"

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
    instance.reserved = rows.integer(7);
    instance.compress = rows.integer(8) != 0;
    instance.totals = {rows.integer(9), rows.integer(10), rows.integer(11)};
    return instance;
}

}  // namespace

std::optional<Instance> SqliteCatalog::findInstance(std::string_view name) {
    const std::lock_guard lock(mutex_);
    return readInstance(statements_->findInstanceByName.query(name));
}

std::optional<Instance> SqliteCatalog::findInstance(int64_t id) {
    const std::lock_guard lock(mutex_);
    return readInstance(statements_->findInstanceById.query(id));
}

Instance SqliteCatalog::openInstance(const Session& session, std::string_view name,
                                     std::string_view definition, bool compress) {
    const std::lock_guard lock(mutex_);
    statements_->openInstance.run(name, session.machineId, definition, int64_t{compress});
    const auto instance = readInstance(statements_->findInstanceByName.query(name));
    if (!instance) {
        throw std::runtime_error("database: a new backup is not there");
    }
    return *instance;
}

void SqliteCatalog::startInstance(int64_t instance, std::string_view startTime,
                                  const InstanceTotals& totals) {
    const std::lock_guard lock(mutex_);
    statements_->startInstance.run(instance, startTime, totals.files, totals.directories,
                                   totals.size);
}

std::vector<bool> SqliteCatalog::offerFiles(int64_t instance, const std::vector<OfferedFile>& files,
                                            bool compress, bool first) {
    const std::lock_guard lock(mutex_);
    Transaction transaction(database_);
    int64_t base = 0;
    {
        auto rows = statements_->findBase.query(instance);
        base = rows.next() ? rows.integer(0) : 0;
    }
    if (first) {
        statements_->dropFiles.run(instance);
    }
    statements_->setCompress.run(instance, int64_t{compress});
    std::vector<bool> send;
    send.reserve(files.size());
    for (const OfferedFile& file : files) {
        bool carried = false;
        if (base != 0) {
            statements_->carryOver.run(instance, base, Blob{file.path}, file.mtime);
            carried = database_.changes() == 1;
        }
        if (!carried) {
            statements_->await.run(instance, Blob{file.path}, file.mtime, int64_t{compress});
        }
        send.push_back(!carried);
    }
    transaction.commit();
    return send;
}

std::optional<StoredFile> SqliteCatalog::findFile(int64_t instance, std::string_view path) {
    const std::lock_guard lock(mutex_);
    auto rows = statements_->findFile.query(instance, Blob{path});
    if (!rows.next()) {
        return std::nullopt;
    }
    StoredFile file;
    file.kind = static_cast<FileKind>(rows.integer(0));
    file.attributes = sqliteAttributes(rows.text(1));
    file.mtime = rows.integer(2);
    file.compress = rows.integer(3) != 0;
    file.size = rows.integer(4);
    file.blocks = rows.integer(5);
    file.container = rows.integer(6);
    file.offset = rows.integer(7);
    return file;
}

void SqliteCatalog::putFile(int64_t instance, std::string_view path, const StoredFile& file,
                            int64_t reserved) {
    const std::string_view attributes(reinterpret_cast<const char*>(file.attributes.data()),
                                      sizeof file.attributes);
    const std::lock_guard lock(mutex_);
    Transaction transaction(database_);
    statements_->putFile.run(instance, Blob{path}, static_cast<int64_t>(file.kind),
                             Blob{attributes}, file.mtime, int64_t{file.compress}, file.size,
                             file.blocks, file.container, file.offset);
    statements_->setReserved.run(instance, reserved);
    transaction.commit();
}

void SqliteCatalog::setBlocks(int64_t instance, std::string_view path, int64_t blocks) {
    const std::lock_guard lock(mutex_);
    statements_->setBlocks.run(instance, Blob{path}, blocks);
}

std::vector<std::string> SqliteCatalog::listIncomplete(int64_t instance, size_t limit,
                                                       size_t bytes) {
    const std::lock_guard lock(mutex_);
    auto rows = statements_->listIncomplete.query(instance, static_cast<int64_t>(limit));
    std::vector<std::string> paths;
    for (size_t listed = 0; listed < bytes && rows.next(); listed += paths.back().size()) {
        paths.emplace_back(rows.text(0));
    }
    return paths;
}

void SqliteCatalog::damageInstance(int64_t instance) {
    const std::lock_guard lock(mutex_);
    statements_->damageInstance.run(instance);
}

int64_t SqliteCatalog::packedLength(int64_t instance) {
    const std::lock_guard lock(mutex_);
    auto rows = statements_->packedLength.query(instance);
    return rows.next() ? rows.integer(0) : 0;
}

void SqliteCatalog::addErrors(int64_t instance, const std::vector<FailedFile>& errors) {
    const std::lock_guard lock(mutex_);
    Transaction transaction(database_);
    for (const FailedFile& error : errors) {
        statements_->addError.run(instance, Blob{error.path}, error.code, error.reason);
    }
    transaction.commit();
}

std::optional<FailedFile> SqliteCatalog::findError(int64_t instance, std::string_view path) {
    const std::lock_guard lock(mutex_);
    auto rows = statements_->findError.query(instance, Blob{path});
    if (!rows.next()) {
        return std::nullopt;
    }
    return FailedFile{std::string(path), rows.integer(0), std::string(rows.text(1))};
}

void SqliteCatalog::completeInstance(int64_t instance, std::string_view endTime) {
    const std::lock_guard lock(mutex_);
    durably([&] {
        statements_->dropIncomplete.run(instance);
        statements_->completeInstance.run(instance, endTime);
    });
}

void SqliteCatalog::cancelInstance(int64_t instance) {
    const std::lock_guard lock(mutex_);
    Transaction transaction(database_);
    statements_->dropFiles.run(instance);
    statements_->cancelInstance.run(instance);
    transaction.commit();
}

std::vector<InstanceSummary> SqliteCatalog::listInstances(int64_t user, std::string_view machine,
                                                          std::string_view definition) {
    const std::lock_guard lock(mutex_);
    std::vector<InstanceSummary> list;
    auto rows = statements_->listInstances.query(user, machine, definition);
    while (rows.next()) {
        list.push_back({std::string(rows.text(0)),
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

}  // namespace dorvo
