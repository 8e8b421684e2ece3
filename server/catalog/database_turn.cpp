#include "catalog/database_turn.h"

#include <exception>
#include <thread>

namespace dorvo {

DatabaseTurn::FullSync::FullSync(Database& database) : database_(database) {
    database_.exec("PRAGMA synchronous=FULL");
}

DatabaseTurn::FullSync::~FullSync() {
    try {
        database_.exec("PRAGMA synchronous=NORMAL");
    } catch (const std::exception&) {
        // It stays FULL then: slower, and just as right.
    }
}

DatabaseTurn::DatabaseTurn(TurnMutex& mutex, Database& database, Access access,
                           std::chrono::milliseconds patience)
    : lock_(mutex) {
    const auto until = TurnMutex::Clock::now() + patience;
    while (true) {
        try {
            if (access == Access::durable) {
                full_.emplace(database);  // not within a transaction
            }
            transaction_.emplace(database, access == Access::read ? Transaction::Kind::read
                                                                  : Transaction::Kind::write);
            return;
        } catch (const DatabaseBusy&) {
            full_.reset();
            if (TurnMutex::Clock::now() >= until) {
                throw;
            }
        }
        lock_.unlock();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        lock_.lock();
    }
}

}  // namespace dorvo
