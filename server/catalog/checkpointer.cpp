#include "catalog/checkpointer.h"

#include <algorithm>
#include <chrono>
#include <exception>

#include "catalog/sqlite.h"
#include "common/service_log.h"

namespace dorvo {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds noPatience{0};
constexpr milliseconds shortestPause{100};
constexpr milliseconds longestPause{10'000};

struct Moved {
    bool hindered = false;
    int64_t pages = 0;  // that the log holds; this and the next are -1 without a log
    int64_t moved = 0;
};

Moved run(Database& database, const char* pragma) {
    Statement statement(database, pragma);
    auto rows = statement.query();
    rows.next();
    return {rows.integer(0) != 0, rows.integer(1), rows.integer(2)};
}

}  // namespace

Checkpointer::Checkpointer(std::string path, TurnMutex& writers)
    : path_(std::move(path)),
      writers_(writers),
      thread_([this](const std::stop_token& stop) { work(stop); }) {}

void Checkpointer::poke() {
    {
        const std::lock_guard lock(mutex_);
        // While a try is due already the thread may sleep on: each commit comes here.
        if (due_) {
            return;
        }
        due_ = true;
    }
    changed_.notify_one();
}

void Checkpointer::work(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    milliseconds pause{0};
    while (true) {
        changed_.wait(lock, stop, [this] { return due_; });
        changed_.wait_for(lock, stop, pause, [] { return false; });
        if (stop.stop_requested()) {
            return;
        }
        due_ = false;
        lock.unlock();
        const bool done = checkpoint();
        lock.lock();
        pause = done ? milliseconds{0} : std::clamp(2 * pause, shortestPause, longestPause);
        // The reader may go when nobody commits any more.
        due_ = due_ || !done;
    }
}

bool Checkpointer::checkpoint() {
    try {
        return moveLog(path_, writers_, keptPages);
    } catch (const std::exception& error) {
        // Nothing is lost: the log keeps all of it.
        logEvent(std::string("fault in a checkpoint: ") + error.what());
        return false;
    }
}

bool Checkpointer::moveLog(const std::string& path, TurnMutex& writers, int64_t kept) {
    Database database(path, noPatience);
    database.exec("PRAGMA synchronous=NORMAL");
    const Moved bulk = run(database, "PRAGMA wal_checkpoint(PASSIVE)");
    if (bulk.hindered || bulk.moved < bulk.pages) {
        return false;
    }
    const std::lock_guard lock(writers);
    return !run(database, bulk.pages > kept ? "PRAGMA wal_checkpoint(TRUNCATE)"
                                            : "PRAGMA wal_checkpoint(RESTART)")
                .hindered;
}

}  // namespace dorvo
