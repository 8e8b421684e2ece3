// Who has the catalog's lock after whom.
#include "catalog/turn_mutex.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "catalog/sqlite_catalog.h"
#include "testing/temp_folder.h"

namespace dorvo {

namespace {

using std::chrono::seconds;
using namespace std::chrono_literals;

TEST(TurnMutex, GivesWayToThoseWhoWaitAndForAsLong) {
    TurnMutex mutex;
    std::string turns;
    for (const seconds held : {0s, 0s, 0s, 20s}) {
        const auto since = TurnMutex::Clock::now() - held;
        mutex.lock();
        std::thread other([&] {
            const std::lock_guard lock(mutex);
            turns += 'o';
        });
        while (mutex.waiting() == 0) {
            std::this_thread::yield();
        }
        const auto now = TurnMutex::Clock::now();
        const TurnMutex::Debt debt = mutex.debt(since);
        mutex.unlock();
        mutex.giveWay(debt);
        const auto given = TurnMutex::Clock::now() - now;
        mutex.lock();
        turns += 'h';
        mutex.unlock();
        other.join();
        EXPECT_GE(given, std::min<TurnMutex::Clock::duration>(now - since, 50ms));
        EXPECT_LT(given, 10s);  // a disk that stood still is not paid for
    }
    EXPECT_EQ(turns, "ohohohoh");
    EXPECT_EQ(mutex.debt({}).asked, 0U);
}

// Asks for the lock at the end of each piece of another call.
class Other {
public:
    explicit Other(SqliteCatalog& catalog) : catalog_(catalog) {}
    ~Other() { finish(); }
    Other(const Other&) = delete;
    Other& operator=(const Other&) = delete;

    void finish() { thread_ = std::jthread(); }

    // Returns once it sleeps, waiting.
    void ask() {
        finish();
        std::atomic<pid_t> id = 0;
        thread_ = std::jthread([this, &id] {
            id = ::gettid();
            id.notify_one();
            catalog_.findPassword("u");
        });
        id.wait(0);
        std::string state;
        while (state != "S") {
            std::ifstream stat("/proc/self/task/" + std::to_string(id) + "/stat");
            stat >> state >> state >> state;
        }
    }

private:
    SqliteCatalog& catalog_;
    std::jthread thread_;
};

// What the connections opened meanwhile do, in their order.
std::function<void(std::string_view)> traced;

int trace(unsigned, void*, void*, void* sql) {
    traced(static_cast<const char*>(sql));
    return 0;
}

int begin(sqlite3* database, const char**, const sqlite3_api_routines*) {
    return sqlite3_trace_v2(database, SQLITE_TRACE_STMT, &trace, nullptr);
}

TEST(SqliteCatalog, GivesWayAfterEachPiece) {
    const TempFolder folder;
    std::string turns;
    traced = [](std::string_view) {};
    const auto extension = reinterpret_cast<void (*)()>(&begin);
    sqlite3_auto_extension(extension);
    SqliteCatalog catalog((folder.path() / "catalog.db").string());
    sqlite3_cancel_auto_extension(extension);
    const std::vector<OfferedFile> files(15000, {"a", 1});
    Other other(catalog);
    // cppcheck-suppress danglingLifetime; nothing is traced when the catalog has gone
    traced = [&](std::string_view sql) {
        if (sql == "COMMIT" || sql.find("JOIN damaged") != std::string_view::npos) {
            const bool had = !turns.ends_with('p');
            turns += 'p';
            if (had) {
                other.ask();
            }
        } else if (sql.find("FROM users") != std::string_view::npos) {
            turns += 'o';
        }
    };
    catalog.offerFiles(1, files, false, false);
    other.finish();
    EXPECT_EQ(turns, "popopopopopopopopopopopopopopo");
    turns.clear();
    for (int i = 0; i < 5; ++i) {
        catalog.listItems(1, "", 1);
    }
    other.finish();
    EXPECT_EQ(turns, "popopopopo");
}

}  // namespace

}  // namespace dorvo
