// The turn of one thread at a connection that many share: the lock and a transaction.
//
// What another program has of the database is waited for before the turn begins, and without the
// lock: whom it leaves something goes on meanwhile. What is done in a turn is done once.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>

#include "catalog/sqlite.h"
#include "catalog/turn_mutex.h"

namespace dorvo {

class DatabaseTurn {
public:
    enum class Access : uint8_t { read, write, durable };  // durable: no power cut takes it

    // Throws DatabaseBusy when another program still has it after that time.
    DatabaseTurn(TurnMutex& mutex, Database& database, Access access,
                 std::chrono::milliseconds patience);
    // Takes back what is not committed.
    ~DatabaseTurn() = default;
    DatabaseTurn(const DatabaseTurn&) = delete;
    DatabaseTurn& operator=(const DatabaseTurn&) = delete;

    void commit() { transaction_->commit(); }

private:
    // A commit meanwhile syncs the log, which holds all earlier commits too. One that leaves every
    // row as it was commits nothing, and syncs nothing.
    class FullSync {
    public:
        explicit FullSync(Database& database);
        ~FullSync();
        FullSync(const FullSync&) = delete;
        FullSync& operator=(const FullSync&) = delete;

    private:
        Database& database_;
    };

    // They end from the last to the first.
    std::unique_lock<TurnMutex> lock_;
    std::optional<FullSync> full_;
    std::optional<Transaction> transaction_;
};

}  // namespace dorvo
