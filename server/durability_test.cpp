// Which changes wait for the disk, so that a power cut does not take them.
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <future>

#include "catalog/sqlite_catalog.h"
#include "testing/false_disk.h"
#include "testing/service_fixture.h"

namespace dorvo {

namespace fs = std::filesystem;

namespace {

TEST(SqliteCatalog, SyncsItsLogForWhatIsDurable) {
    const TempFolder folder;
    SqliteCatalog catalog((folder.path() / "catalog.db").string());
    catalog.beginService("boot", {}, 0);
    catalog.addUser("u", "-");
    catalog.addSession("token", "u", "pc", 0, 1000);
    const Session session = *catalog.findSession("token", 0, 1000);
    StoredFile file;
    file.size = 5;
    file.container = 1;
    const auto open = [&](const char* name) {
        return catalog.openInstance(session, name, "job", false).id;
    };
    const std::vector<OfferedFile> a = {{"a", 1}};
    const std::vector<OfferedFile> b = {{"b", 1}};
    const std::vector<FailedFile> failed = {{"b", 5, ""}};
    const std::vector<KeptBlocks> dropped = {{"a", 0}};
    const int64_t run = open("run");
    const int64_t other = open("other");
    struct Row {
        const char* name;
        std::function<void()> change;
        bool durable = true;
    };
    const Row rows[] = {
        {"offered to a pending one", [&] { catalog.offerFiles(run, a, false, false); }, false},
        {"started", [&] { catalog.startInstance(run, "", {}); }},
        {"offered to a running one", [&] { catalog.offerFiles(run, b, false, false); }},
        {"placed", [&] { catalog.placeFile(run, "a", file, 9); }, false},
        {"stored", [&] { catalog.putBlock(run, "a", file, 1, std::string(16, 'x')); }, false},
        {"failed", [&] { catalog.addErrors(run, failed); }, false},
        {"all that was changed", [&] { catalog.syncChanges(); }},
        {"a sync point", [&] { catalog.endSyncPoint(catalog.beginSyncPoint()); }},
        {"dropped", [&] { catalog.dropBlocks(run, dropped); }},
        {"used", [&] { catalog.useInstance(run); }, false},
        {"a generation", [&] { catalog.nextGeneration(); }},
        {"the same generation", [&] { catalog.nextGeneration(); }, false},
        {"completed", [&] { EXPECT_TRUE(catalog.completeInstance(run, "", 1)); }},
        {"cancelled", [&] { catalog.cancelInstance(other); }},
        {"opened", [&] { open("third"); }},
        {"a user", [&] { catalog.addUser("v", "-"); }},
        {"keys", [&] { EXPECT_TRUE(catalog.putKeys(session.userId, "md5")); }},
        {"a session", [&] { catalog.addSession("second", "u", "pc", 0, 1000); }, false},
        {"a session's end", [&] { catalog.removeSession("second"); }},
        {"a tail", [&] { catalog.takeInTail(1, 9, true); }},
        {"skipped numbers", [&] { catalog.skipNumbers(9); }},
        {"abandoned", [&] { EXPECT_EQ(catalog.abandonOpen().size(), 1U); }},
        {"the end of service", [&] { catalog.endService(); }},
        {"service", [&] { catalog.beginService("boot", {}, 0); }},
    };
    for (const Row& row : rows) {
        const SyncCount log("catalog.db-wal");
        row.change();
        EXPECT_EQ(log.count() > 0, row.durable) << row.name;
    }
}

TEST(SqliteCatalog, TakesALogThatItCannotSyncForNoneThatIsSynced) {
    const TempFolder folder;
    SqliteCatalog catalog((folder.path() / "catalog.db").string());
    catalog.addUser("u", "-");
    const fs::path log = folder.path() / "catalog.db-wal";
    const fs::path away = folder.path() / "away";
    fs::rename(log, away);
    fs::create_symlink(log, log);
    EXPECT_THROW(catalog.syncChanges(), std::exception);
    fs::remove(log);
    fs::rename(away, log);
    const FalseDisk refuses([](int) { return -1; });
    EXPECT_THROW(catalog.syncChanges(), std::exception);
}

class AnotherProgram : public testing::Test {
protected:
    AnotherProgram() {
        catalog.addUser("u", "-");
        catalog.addSession("token", "u", "pc", 0, 1000);
    }

    // It waits as long as the other program has what it needs.
    template <class Call>
    static auto waits(const Call& call) {
        auto result = std::async(std::launch::async, call);
        EXPECT_EQ(result.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
        return result;
    }

    const TempFolder folder;
    const std::string path = (folder.path() / "catalog.db").string();
    SqliteCatalog catalog{path};
    SqliteCatalog impatient{path, {}, std::chrono::milliseconds(1)};
};

TEST_F(AnotherProgram, ThatWritesHoldsUpWritersAlone) {
    Database other(path);
    other.exec("BEGIN IMMEDIATE");
    EXPECT_THROW(impatient.addUser("v", "-"), DatabaseBusy);
    auto added = waits([&] { return catalog.addUser("v", "-"); });
    for (int i = 0; i < 20000; ++i) {
        ASSERT_TRUE(catalog.findPassword("u"));
    }
    EXPECT_TRUE(catalog.findSession("token", 500, 1000));  // nor does it wait to be used
    other.exec("COMMIT");
    EXPECT_TRUE(added.get());
    EXPECT_TRUE(catalog.findSession("token", 500, 1000));
    EXPECT_TRUE(catalog.findSession("token", 1400, 1000));
}

TEST_F(AnotherProgram, ThatRepairsTheLogHoldsUpReaders) {
    struct flock locks {};  // of the log: to write, to move, to repair
    locks.l_type = F_WRLCK;
    locks.l_start = 120;
    locks.l_len = 3;
    const FileDescriptor index(::open((path + "-shm").c_str(), O_RDWR));
    ASSERT_EQ(::fcntl(index.get(), F_OFD_SETLK, &locks), 0);
    ASSERT_EQ(::pwrite(index.get(), "broken", 6, 0), 6);
    EXPECT_THROW(impatient.findPassword("u"), DatabaseBusy);
    auto found = waits([&] { return catalog.findPassword("u"); });
    locks.l_type = F_UNLCK;
    ASSERT_EQ(::fcntl(index.get(), F_OFD_SETLK, &locks), 0);
    EXPECT_TRUE(found.get());
}

using Durability = ServiceFixture;

// The system tells of it once, and a service that has ended remembers nothing.
TEST_F(Durability, OfBytesThatTheDiskRefusedIsNotLeftToTheNextService) {
    run("i1", "a", "refused");
    change(
        "CREATE TRIGGER never BEFORE UPDATE OF damaged ON instances BEGIN SELECT"
        " RAISE(ABORT, 'not now'); END");
    {
        const FalseDisk refuses([](int fd) { return FalseDisk::name(fd) == "1.pkg" ? -1 : 0; });
        EXPECT_EQ(end("i1"), 503);
    }
    change("DROP TRIGGER never");
    restart();
    EXPECT_EQ(start("i1"), 409);
}

TEST_F(Durability, OfWhatACrashLeftIsNotWhatTheDiskRefusesThenOrTheSystemRemembers) {
    for (const std::string refused : {"1.pkg", "none"}) {
        again();
        run("i1", "a", "bytes");
        server.reset();
        change("UPDATE service SET boot = 'boot 1'");
        {
            const FalseDisk disk([&](int fd) { return FalseDisk::name(fd) == refused ? -1 : 0; },
                                 refused == "none");
            restart();
        }
        EXPECT_EQ(start("i1"), 409) << refused;
    }
}

// Nothing has been served.
TEST_F(Durability, AStartThatFailsIsNoCrash) {
    offer("i1", {{"a"}});
    server.reset();
    options.address = "192.0.2.1";
    EXPECT_THROW(restart(), std::runtime_error);
    options.address = "127.0.0.1";
    change(
        "CREATE TRIGGER never BEFORE UPDATE OF synced ON service BEGIN SELECT"
        " RAISE(ABORT, 'not now'); END");
    EXPECT_THROW(restart(), std::runtime_error);
    change("DROP TRIGGER never");
    restart("boot 2");
    EXPECT_EQ(start("i1"), 200);
}

// What the disk has refused once no later sync tells.
TEST_F(Durability, AStartWhoseDiskRefusesIsACrash) {
    offer("i1", {{"a"}});
    server.reset();
    {
        bool told = false;
        const FalseDisk refuses([&](int fd) {
            return FalseDisk::name(fd) == "packages" && !std::exchange(told, true) ? -1 : 0;
        });
        EXPECT_THROW(restart(), std::runtime_error);
    }
    restart("boot 2");
    EXPECT_EQ(start("i1"), 409);
}

// Of a complete file nobody would ask for the error.
TEST_F(Durability, OfErrorsIsThatOfTheFilesTheyAreOf) {
    run("i1", "a", "complete");
    const SyncCount log("catalog.db-wal");
    EXPECT_EQ(addError("i1", "a"), 200);
    EXPECT_GT(log.count(), 0);
}

}  // namespace

}  // namespace dorvo
