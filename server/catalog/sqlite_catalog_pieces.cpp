// What concerns all files of a backup, in pieces: nobody waits for a million of them.
#include <algorithm>
#include <map>

#include "catalog/sqlite_catalog.h"
#include "catalog/sqlite_statements.h"

namespace dorvo {

namespace {

// A few milliseconds of work.
constexpr size_t pieceFiles = 1000;

}  // namespace

void SqliteCatalog::inPieces(Access access, const std::function<bool()>& step) {
    bool more = true;
    while (more) {
        TurnMutex::Debt debt;
        {
            DatabaseTurn mine = turn(access);
            const auto begin = TurnMutex::Clock::now();
            more = step();
            mine.commit();
            debt = mutex_.debt(begin);
        }
        if (more) {
            mutex_.giveWay(debt);
        }
    }
}

void SqliteCatalog::eachStretch(int64_t instance, Access access,
                                const std::function<bool(const Stretch&)>& step) {
    Stretch stretch;
    inPieces(access, [&] {
        bool more = false;
        {
            auto rows = statements_->skipFiles.query(instance, Blob{stretch.after},
                                                     int64_t{pieceFiles - 1});
            more = rows.next();
            stretch.last = more ? rows.text(0) : afterAllPaths;
        }
        more = step(stretch) && more;
        stretch.after = stretch.last;
        return more;
    });
}

void SqliteCatalog::dropFiles(int64_t instance) {
    eachStretch(instance, Access::write, [&](const Stretch& stretch) {
        statements_->dropFiles.run(instance, Blob{stretch.after}, Blob{stretch.last});
        return true;
    });
}

std::vector<bool> SqliteCatalog::offerFiles(int64_t instance, const std::vector<OfferedFile>& files,
                                            bool compress, bool first) {
    if (first) {
        dropFiles(instance);
    }
    std::vector<bool> send;
    send.reserve(files.size());
    bool running = false;
    inPieces(Access::write, [&] {
        const auto end = std::min(files.size(), send.size() + pieceFiles);
        if (first && send.empty()) {
            // No file is in them any more.
            giveUpContainers(instance);
        }
        statements_->setCompress.run(instance, int64_t{compress});
        int64_t base = 0;
        {
            auto rows = statements_->findBase.query(instance);
            if (rows.next()) {
                base = rows.integer(0);
                running = static_cast<InstanceState>(rows.integer(1)) == InstanceState::running;
            }
        }
        while (send.size() < end) {
            send.push_back(!offerFile(instance, base, files[send.size()], compress));
        }
        return end < files.size();
    });
    if (running) {
        syncChanges();
    }
    return send;
}

// Whether the file is carried over. In a turn.
bool SqliteCatalog::offerFile(int64_t instance, int64_t base, const OfferedFile& file,
                              bool compress) {
    if (base != 0) {
        statements_->carryOver.run(instance, base, Blob{file.path}, file.mtime);
        if (database_.changes() == 1) {
            return true;
        }
    }
    statements_->await.run(instance, Blob{file.path}, file.mtime, int64_t{compress});
    return false;
}

std::vector<std::string> SqliteCatalog::listIncomplete(int64_t instance, size_t limit,
                                                       size_t bytes) {
    std::vector<std::string> paths;
    size_t listed = 0;
    eachStretch(instance, Access::read, [&](const Stretch& stretch) {
        auto rows =
            statements_->listIncomplete.query(instance, Blob{stretch.after}, Blob{stretch.last},
                                              static_cast<int64_t>(limit - paths.size()));
        for (; listed < bytes && rows.next(); listed += paths.back().size()) {
            paths.emplace_back(rows.text(0));
        }
        return listed < bytes && paths.size() < limit;
    });
    return paths;
}

std::vector<PackedContainer> SqliteCatalog::listPacked(int64_t instance) {
    std::map<int64_t, int64_t> lengths;
    eachStretch(instance, Access::read, [&](const Stretch& stretch) {
        auto rows =
            statements_->listPacked.query(instance, Blob{stretch.after}, Blob{stretch.last});
        while (rows.next()) {
            int64_t& length = lengths[rows.integer(0)];
            length = std::max(length, rows.integer(1));
        }
        return true;
    });
    std::vector<PackedContainer> list;
    list.reserve(lengths.size());
    for (const auto& [container, length] : lengths) {
        list.push_back({container, length});
    }
    return list;
}

void SqliteCatalog::addErrors(int64_t instance, const std::vector<FailedFile>& errors) {
    eachPiece(errors, [&](const FailedFile& error) {
        statements_->addError.run(instance, Blob{error.path}, error.code, error.reason);
    });
}

void SqliteCatalog::addRestoreErrors(int64_t restore, const std::vector<FailedFile>& errors,
                                     size_t kept) {
    int64_t count = 0;
    {
        const DatabaseTurn mine = turn();
        auto rows = statements_->countRestoreErrors.query(restore);
        count = rows.next() ? rows.integer(0) : 0;
    }
    eachPiece(errors, [&](const FailedFile& error) {
        // One that is repeated takes the place of itself.
        const bool known = statements_->findRestoreError.query(restore, Blob{error.path}).next();
        if (known || count < static_cast<int64_t>(kept)) {
            count += known ? 0 : 1;
            statements_->addRestoreError.run(restore, Blob{error.path}, error.code, error.reason);
        }
    });
}

void SqliteCatalog::eachPiece(const std::vector<FailedFile>& errors,
                              const std::function<void(const FailedFile&)>& add) {
    size_t added = 0;
    inPieces(Access::write, [&] {
        const auto end = std::min(errors.size(), added + pieceFiles);
        for (; added < end; ++added) {
            add(errors[added]);
        }
        return added < errors.size();
    });
}

bool SqliteCatalog::completeInstance(int64_t instance, std::string_view endTime, int64_t items) {
    // What a death in between leaves is a running backup without some of the files that its error
    // list has: it ends as it would have.
    eachStretch(instance, Access::write, [&](const Stretch& stretch) {
        statements_->dropIncomplete.run(instance, Blob{stretch.after}, Blob{stretch.last});
        return true;
    });
    bool completed = false;
    durably([&] {
        statements_->completeInstance.run(instance, endTime, items);
        completed = database_.changes() == 1;
        statements_->nextGeneration.run();
    });
    if (completed && completed_) {
        completed_();
    }
    return completed;
}

void SqliteCatalog::cancelInstance(int64_t instance) {
    // The state first: nothing of a cancelled backup is ever read again.
    durably([&] {
        giveUpContainers(instance);
        statements_->cancelInstance.run(instance);
    });
    dropFiles(instance);
}

void SqliteCatalog::finishCancelling() {
    std::vector<int64_t> instances;
    {
        const DatabaseTurn mine = turn();
        auto rows = statements_->listHalfCancelled.query();
        while (rows.next()) {
            instances.push_back(rows.integer(0));
        }
    }
    for (const int64_t instance : instances) {
        dropFiles(instance);
    }
    forgetStrangers();
}

}  // namespace dorvo
