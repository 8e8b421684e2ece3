// The catalog's durable transaction, for the files that implement it.
#pragma once

#include <exception>

#include "sqlite_catalog.h"

namespace dorvo {

template <class Change>
void SqliteCatalog::durably(const Change& change) {
    // FULL makes this commit sync the log, which holds all earlier commits too. One that leaves
    // every row as it was commits nothing, and syncs nothing.
    struct FullSync {
        explicit FullSync(Database& opened) : database(opened) {
            database.exec("PRAGMA synchronous=FULL");
        }
        ~FullSync() {
            try {
                database.exec("PRAGMA synchronous=NORMAL");
            } catch (const std::exception&) {
                // It stays FULL then: slower, and just as right.
            }
        }
        FullSync(const FullSync&) = delete;
        FullSync& operator=(const FullSync&) = delete;
        Database& database;
    };
    const FullSync full(database_);
    Transaction transaction(database_);
    change();
    transaction.commit();
}

}  // namespace dorvo
