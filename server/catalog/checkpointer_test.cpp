// What moving the log does while others read and write.
#include "catalog/checkpointer.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <optional>
#include <thread>

#include "catalog/sqlite.h"
#include "testing/temp_folder.h"

namespace dorvo {

namespace {

namespace fs = std::filesystem;

// SQLite sleeps while it waits for a lock. This counts how often, and does not.
int slept = 0;

class WithoutSleep {
public:
    WithoutSleep() {
        slept = 0;
        shim_.zName = "without-sleep";
        shim_.xSleep = [](sqlite3_vfs*, int microseconds) {
            ++slept;
            return microseconds;
        };
        sqlite3_vfs_register(&shim_, 1);
    }
    ~WithoutSleep() { sqlite3_vfs_unregister(&shim_); }
    WithoutSleep(const WithoutSleep&) = delete;
    WithoutSleep& operator=(const WithoutSleep&) = delete;

private:
    sqlite3_vfs shim_ = *sqlite3_vfs_find(nullptr);
};

class Checkpoints : public testing::Test {
protected:
    Checkpoints() {
        writer_->exec(
            "PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=0;"
            "CREATE TABLE t(x); INSERT INTO t VALUES(1)");
    }

    void write() { writer_->exec("INSERT INTO t VALUES(zeroblob(100000))"); }
    [[nodiscard]] uintmax_t logBytes() const { return fs::file_size(path_.string() + "-wal"); }
    // A log of more than four pages counts as long.
    bool move() { return Checkpointer::moveLog(path_.string(), writers_, 4); }

    WithoutSleep shim_;
    const TempFolder folder_;
    const fs::path path_ = folder_.path() / "db";
    TurnMutex writers_;
    std::optional<Database> writer_{path_.string()};
};

TEST_F(Checkpoints, WaitForNobodyAndCutTheLogWhenTheyAreGone) {
    struct Row {
        const char* name;
        const char* hold;  // what another process does and does not end
        bool written;      // the log has grown since
    };
    const Row rows[] = {
        {"a reader of what was", "BEGIN; SELECT count(*) FROM t", true},
        {"a reader of what is", "BEGIN; SELECT count(*) FROM t", false},
        {"a writer", "BEGIN IMMEDIATE", false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        write();
        {
            Database other(path_.string());
            other.exec(row.hold);
            if (row.written) {
                write();
            }
            const auto before = logBytes();
            EXPECT_FALSE(move());
            EXPECT_FALSE(move());
            EXPECT_EQ(logBytes(), before);
            EXPECT_EQ(slept, 0);
        }
        EXPECT_TRUE(move());
        EXPECT_EQ(logBytes(), 0U);
    }
}

TEST_F(Checkpoints, KeepTheFileOfAShortLog) {
    writer_->exec("INSERT INTO t VALUES(2)");
    EXPECT_TRUE(move());
    writer_->exec("INSERT INTO t VALUES(3)");
    const auto before = logBytes();
    EXPECT_TRUE(move());
    EXPECT_EQ(logBytes(), before);
}

TEST_F(Checkpoints, AreTriedAgainWithoutAnotherCommit) {
    write();
    Database other(path_.string());
    other.exec("BEGIN; SELECT count(*) FROM t");
    write();
    Checkpointer checkpointer(path_.string(), writers_);
    checkpointer.poke();
    // It has begun, and cannot come to the end of the log.
    while (fs::file_size(path_) < 100000) {
        std::this_thread::yield();
    }
    other.exec("COMMIT");
    // Once all has been moved a writer begins the log anew, and it does not grow.
    uintmax_t before = 0;
    do {
        const std::lock_guard lock(writers_);
        before = logBytes();
        writer_->exec("UPDATE t SET x = x + 1 WHERE x < 1000000");
    } while (logBytes() > before);
}

}  // namespace

}  // namespace dorvo
