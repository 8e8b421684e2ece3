// What goes on where the catalog's disk has no room left but what the service holds itself.
#include <chrono>
#include <fstream>
#include <future>

#include "abandoned_runs.h"
#include "common/files.h"
#include "common/service_error.h"
#include "endpoints/instance_access.h"
#include "testing/service_fixture.h"

namespace dorvo {

namespace {

namespace fs = std::filesystem;

// Takes nothing while the file "reserve" is there, or ever.
class FullCatalog : public SqliteCatalog {
public:
    explicit FullCatalog(const fs::path& data)
        : SqliteCatalog((data / "catalog.db").string()), reserve_(data / "reserve") {}

    std::vector<int64_t> listIdle(int64_t passed, int64_t limit) override {
        requireRoom();
        return SqliteCatalog::listIdle(passed, limit);
    }
    void cancelInstance(int64_t instance) override {
        requireRoom();
        SqliteCatalog::cancelInstance(instance);
    }
    void useInstance(int64_t instance) override {
        ++uses;
        requireRoom();
        SqliteCatalog::useInstance(instance);
    }
    bool damagePackage(const StoredFile& file) override {
        requireRoom();
        return SqliteCatalog::damagePackage(file);
    }
    void addErrors(int64_t instance, const std::vector<FailedFile>& errors) override {
        requireRoom();
        SqliteCatalog::addErrors(instance, errors);
    }

    int uses = 0;
    bool forEver = false;

private:
    void requireRoom() const {
        if (forEver || fs::exists(reserve_)) {
            throw DiskFull("full");
        }
    }

    fs::path reserve_;
};

// Packages on a disk of their own, or under a quota, that is full.
class FullBlocks : public FileBlockStore {
public:
    using FileBlockStore::FileBlockStore;

    void write(int64_t container, int64_t offset, std::string_view bytes) override {
        if (full) {
            throw DiskFull("full");
        }
        FileBlockStore::write(container, offset, bytes);
    }

    bool full = true;
};

class FullDisk : public ServiceFixture {
protected:
    // A backup that is completed and one under way, each of one file.
    void SetUp() override {
        ServiceFixture::SetUp();
        backup("done", {{"a"}});
        run("run", "b", "b");
        server.reset();
        column("UPDATE instances SET idle = 1000");
        catalog.emplace(data);
        blocks.emplace(data / "packages");
        room.emplace(data, 0, [](const fs::path&) { return DiskSpace{0, 1000}; });
        holdRoom();
    }
    void TearDown() override {
        room.reset();
        blocks.reset();
        catalog.reset();
        ServiceFixture::TearDown();
    }

    void holdRoom() const { std::ofstream(reserve()) << "held"; }
    [[nodiscard]] fs::path reserve() const { return data / "reserve"; }

    const Session session{1, 1, "alice", "pc"};
    std::optional<FullCatalog> catalog;
    std::optional<FullBlocks> blocks;
    std::optional<DiskRoom> room;
};

TEST_F(FullDisk, AbandonedRunsAreGivenUpForAllThat) {
    BackupEndpoints backups(*catalog, *catalog, *blocks, *room, [] {});
    column(
        "INSERT INTO instances(id, user, name, machine, definition, base, state, compress, idle)"
        " VALUES(7, 1, 'first', 1, 'job', 0, 1, 0, 1000), (8, 1, 'last', 1, 'job', 0, 1, 0, 1000)");
    std::promise<void> done;
    const AbandonedRuns runs(*catalog, *room, std::chrono::seconds(1000),
                             [&](int64_t instance, std::chrono::seconds lifetime) {
                                 holdRoom();
                                 if (instance == 7) {
                                     throw ServiceError(503, "the backup is being ended");
                                 }
                                 backups.giveUp(instance, lifetime.count());
                                 if (instance == 8) {
                                     done.set_value();
                                 }
                             });
    ASSERT_EQ(done.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
    EXPECT_EQ(column("SELECT group_concat(name || state, ' ') FROM instances"),
              "done2 run3 first1 last3");
    EXPECT_FALSE(fs::exists(package(2)));
}

TEST_F(FullDisk, ReadersNeedNoRoom) {
    catalog->forEver = true;
    EXPECT_EQ(ownInstance(*catalog, session, "done").name, "done");
    EXPECT_EQ(catalog->uses, 0);  // nobody gives up what is completed
    EXPECT_EQ(ownInstance(*catalog, session, "run").name, "run");
    EXPECT_EQ(catalog->uses, 1);
}

TEST_F(FullDisk, DamageIsSaidAndRememberedIfThatCanBe) {
    RestoreEndpoints restores(*catalog, *catalog, *blocks, *room);
    fs::resize_file(package(1), 0);
    for (const bool forEver : {true, false}) {
        catalog->forEver = forEver;
        try {
            restores.downloadFileBlock(session, place("done", "a"));
            ADD_FAILURE() << "it was read";
        } catch (const ServiceError& error) {
            EXPECT_EQ(error.status(), 410);
        }
        EXPECT_EQ(column("SELECT count(*) FROM damaged"), forEver ? "0" : "1");
        holdRoom();
    }
}

TEST_F(FullDisk, UploadsGetNothingOfWhatIsHeld) {
    Dispatcher dispatcher(*catalog, *blocks, *room, 1000);
    const auto ask = [&](const std::string& path, const std::string& body,
                         const std::string& type) {
        WebRequest request;
        request.method = "POST";
        request.path = path;
        request.cookie = alice;
        request.contentType = type;
        request.body = body;
        int status = 0;
        dispatcher.handle(request, [&](const WebReply& reply) { status = reply.status; });
        return status;
    };
    const std::string block =
        blockForm("run", "b", "1.jpg", "c", "4a8a08f09d37b73795649038408b5f33");
    EXPECT_EQ(
        ask("/dorvo/Storage Server/backupServer/uploadblock.php", block, std::string(formType)),
        503);
    EXPECT_TRUE(fs::exists(reserve()));
    EXPECT_EQ(ask("/dorvo/WebServer/jobs/AddErrorFiles.php",
                  R"({"jobinstanceid":"run","errors":[{"path":"b","code":5,"reason":""}]})",
                  "application/json"),
              200);
    EXPECT_FALSE(fs::exists(reserve()));
}

}  // namespace

}  // namespace dorvo
