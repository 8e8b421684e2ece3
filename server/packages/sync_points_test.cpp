// When what is written counts as synced.
#include "packages/sync_points.h"

#include <gtest/gtest.h>

#include <deque>
#include <filesystem>
#include <functional>
#include <future>
#include <utility>

#include "catalog/sqlite.h"
#include "catalog/sqlite_catalog.h"
#include "packages/file_block_store.h"
#include "testing/temp_folder.h"

namespace dorvo {

namespace {

namespace fs = std::filesystem;

// Syncs as its test says, one answer after the other; then it has nothing to say against it.
class ScriptedStore : public FileBlockStore {
public:
    using FileBlockStore::FileBlockStore;

    std::deque<std::function<bool(int64_t)>> answers;

    bool sync(int64_t container, int64_t) override {
        if (answers.empty()) {
            return true;
        }
        const auto answer = answers.front();
        answers.pop_front();
        return answer(container);
    }
};

class SyncPointsTest : public testing::Test {
protected:
    SyncPointsTest() {
        catalog = std::make_unique<SqliteCatalog>((data / "catalog.db").string());
        catalog->beginService("boot", {}, 0);
        catalog->addUser("u", "-");
        catalog->addSession("token", "u", "pc", 0, 1000);
        catalog->openInstance(*catalog->findSession("token", 0, 1000), "i1", "job", false);
        Database database((data / "catalog.db").string());
        for (int64_t container = 1; container <= 3; ++container) {
            database.exec("INSERT INTO containers(instance, given, digests) VALUES(1, 9, 1)");
        }
    }
    static StoredFile file(int64_t container) {
        StoredFile file;
        file.container = container;
        file.size = 5;
        return file;
    }
    // As an upload does it.
    void store(SyncPoints& points, int64_t container) {
        points.wrote(container, 5);
        catalog->putBlock(1, "a", file(container), 1, std::string(16, 'x'));
    }
    bool isSynced(int64_t container) { return !catalog->findUnsynced(file(container)); }

    const TempFolder folder;
    const fs::path data = folder.path();
    std::unique_ptr<SqliteCatalog> catalog;
    ScriptedStore blocks{data};
};

TEST_F(SyncPointsTest, CoverWhatWasCountedBeforeTheyBegan) {
    std::promise<void> begun;
    std::promise<void> stored;
    blocks.answers = {[&](int64_t container) {
        EXPECT_EQ(container, 1);
        EXPECT_FALSE(isSynced(1));
        begun.set_value();
        stored.get_future().wait();
        return true;
    }};
    {
        SyncPoints points(*catalog, blocks, {10, std::chrono::hours(1)});
        store(points, 1);
        points.wrote(1, 5);
        begun.get_future().wait();
        store(points, 2);  // while it syncs
        stored.set_value();
    }
    EXPECT_TRUE(isSynced(1));
    EXPECT_FALSE(isSynced(2));
}

TEST_F(SyncPointsTest, ThatFailCoverNothingAndAreMadeAgain) {
    std::promise<void> again;
    blocks.answers = {[](int64_t) -> bool { throw std::runtime_error("not now"); },
                      [&](int64_t container) {
                          EXPECT_EQ(container, 1);
                          EXPECT_FALSE(isSynced(1));
                          again.set_value();
                          return true;
                      }};
    {
        SyncPoints points(*catalog, blocks, {1, std::chrono::seconds(0)});
        catalog->putBlock(1, "a", file(1), 1, std::string(16, 'x'));
        points.wrote(1, 5);
        again.get_future().wait();
    }
    EXPECT_TRUE(isSynced(1));
}

TEST_F(SyncPointsTest, AreFollowedByAnotherForWhatCameAsTheyBegan) {
    // Stores a block once a sync point has begun, before it knows what to sync.
    class Busy : public SqliteCatalog {
    public:
        using SqliteCatalog::SqliteCatalog;
        std::function<void()> begun;
        int64_t beginSyncPoint() override {
            const int64_t stamp = SqliteCatalog::beginSyncPoint();
            if (begun) {
                std::exchange(begun, nullptr)();
            }
            return stamp;
        }
    };
    for (const bool fails : {false, true}) {
        SCOPED_TRACE(fails);
        Busy busy((data / "catalog.db").string());
        std::promise<void> last;
        const auto answer = [&](int64_t) {
            if (fails && blocks.answers.size() == 2) {
                throw std::runtime_error("not now");
            }
            if (blocks.answers.empty()) {
                last.set_value();
            }
            return true;
        };
        blocks.answers.assign(fails ? 3 : 2, answer);
        StoredFile other = file(fails ? 2 : 1);
        other.offset = 5;
        {
            SyncPoints points(busy, blocks, {1, std::chrono::seconds(0)});
            busy.begun = [&] {
                points.wrote(other.container, 0);
                busy.putBlock(1, "b", other, 1, std::string(16, 'x'));
            };
            points.wrote(other.container, 5);
            last.get_future().wait();
            busy.begun = nullptr;
        }
        EXPECT_FALSE(busy.findUnsynced(other));
        blocks.answers.clear();
    }
}

TEST_F(SyncPointsTest, SpoilTheRunWhoseBytesTheDiskRefuses) {
    std::promise<void> refused;
    blocks.answers = {[&](int64_t) {
        refused.set_value();
        return false;
    }};
    {
        SyncPoints points(*catalog, blocks, {1, std::chrono::hours(1)});
        store(points, 3);
        refused.get_future().wait();
    }
    EXPECT_TRUE(catalog->findInstance(1, "i1")->damaged);
}

}  // namespace

}  // namespace dorvo
