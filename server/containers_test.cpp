// Which files a backup's packages lie in, and when one of them may go.
#include <fstream>

#include "catalog/sqlite.h"
#include "catalog/sqlite_versions.h"
#include "testing/service_fixture.h"

namespace dorvo {

namespace {

namespace fs = std::filesystem;

class Containers : public ServiceFixture {
protected:
    // The numbers of the files that hold packages.
    std::string there() const {
        std::string list;
        for (int number = 1; number < 10; ++number) {
            list += fs::exists(package(number)) ? std::to_string(number) : "";
        }
        return list;
    }

    // A data folder in which every backup had one container with its own number. It was served
    // under that boot of the machine, when it was not left in order.
    void makeEarlierFolder(const std::string& boot = {}) {
        makeEarlierCatalog();
        if (!boot.empty()) {
            change("INSERT INTO service VALUES(1, '" + boot + "')");
        }
        const std::string contents[] = {"a", half, "cancelled"};
        for (int number = 1; number <= 3; ++number) {
            fs::create_directories(package(number).parent_path());
            std::ofstream(package(number), std::ios::binary)
                << contents[static_cast<size_t>(number) - 1];
        }
    }
    void makeEarlierCatalog() {
        server.reset();
        fs::remove(data / "packages" / "marker");
        const fs::path now = data / "now.db";
        fs::rename(data / "catalog.db", now);
        Database database((data / "catalog.db").string());
        database.exec(sqliteVersion1);
        database.exec(sqliteVersion2);
        database.exec(("ATTACH '" + now.string() + "' AS now").c_str());
        for (const std::string table : {"users", "machines", "sessions"}) {
            const std::string from = " SELECT * FROM now." + table;
            database.exec(("INSERT INTO " + table).append(from).c_str());
        }
        database.exec(R"(
INSERT INTO instances(name, machine, definition, base, state, completion, compress, reserved)
  VALUES('i1', 1, 'job', 0, 2, 1, 0, 1), ('i2', 1, 'job', 1, 1, 0, 0, 131077),
        ('i3', 1, 'job', 1, 3, 0, 0, 0), ('i4', 1, 'job', 1, 1, 0, 0, 0);
INSERT INTO files VALUES(1, CAST('a' AS BLOB), 1, x'', 1, 0, 1, 1, 1, 0),
  (2, CAST('b' AS BLOB), 1, x'', 1, 0, 131077, 1, 2, 0),
  (2, CAST('a' AS BLOB), 1, x'', 1, 0, 1, 1, 1, 0),
  (4, CAST('empty' AS BLOB), 1, x'', 1, 0, 0, 0, 4, 0);
PRAGMA user_version=2;)");
    }

    const std::string half = pattern(blockBytes);
};

TEST_F(Containers, BeginANewOneAtTheirLimit) {
    options.containerBytes = 10;
    restart();
    const Offer files[] = {{"six by"}, {"last"}, {"longer than the limit"}, {"b"}, {"c"}};
    backup("i1", {std::begin(files), std::end(files)});
    EXPECT_EQ(there(), "123");
    EXPECT_EQ(fs::file_size(package(1)), 10U);
    restart();
    backup("i2", {{"six by"}, {"b"}, {"new"}});
    EXPECT_EQ(there(), "1234");
    for (const Offer& file : files) {
        EXPECT_EQ(stored("i1", file.path), file.path);
    }
    EXPECT_EQ(stored("i2", "six by") + stored("i2", "b") + stored("i2", "new"), "six bybnew");

    run("i3", "a", "123456");
    put("i3", "b", "123456");
    put("i3", "a", "now longer");  // and the place before is given up within its container
    put("i3", "b", "");
    EXPECT_EQ(there(), "1234567");
    EXPECT_EQ(cancel("i3"), 200);
    EXPECT_EQ(there(), "1234");
    EXPECT_EQ(column("SELECT count(*) FROM given_up"), "0");
}

TEST_F(Containers, AreAllLookedAtWhenABackupEnds) {
    options.containerBytes = 10;
    restart();
    for (const int damaged : {1, 5, 9}) {  // the first, second and last one of their backups
        const std::string instance = "i" + std::to_string(damaged);
        start(instance);
        for (const char* path : {"a", "b", "c"}) {
            put(instance, path, "0123456789");
        }
        fs::resize_file(package(damaged), 9);
        EXPECT_EQ(end(instance), 409) << damaged;
        fs::resize_file(package(damaged), 10);
        EXPECT_EQ(end(instance), 409) << damaged << ": its length alone brings no bytes back";
    }
    EXPECT_EQ(there(), "123456789");
}

TEST_F(Containers, GoWithAListThatBeginsAnew) {
    offer("i1", {{"a"}});
    run("i1", "a", "old");
    EXPECT_EQ(offer("i1", {{"b"}}, "job", alice, true), "b");
    // Freed by somebody whom no request waits for.
    const auto patience = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!there().empty() && std::chrono::steady_clock::now() < patience) {
        std::this_thread::yield();
    }
    EXPECT_EQ(there(), "");
    EXPECT_EQ(putBlock("i1", "a", 1, "old"), 404);
    put("i1", "b", "new");
    EXPECT_EQ(end("i1"), 200);
    EXPECT_EQ(there(), "2");
    EXPECT_EQ(stored("i1", "b"), "new");
}

// What a crash leaves between the catalog's change and the freeing of the bytes.
TEST_F(Containers, OnRecordAsGivenUpGoAtTheStart) {
    backup("i1", {{"a"}});
    backup("i2", {{"b"}});
    run("i3", "c", "c");
    server.reset();
    change("DELETE FROM containers WHERE id = 3; INSERT INTO given_up VALUES(3), (1)");
    restart();
    EXPECT_FALSE(fs::exists(data / "orphans"));
    EXPECT_EQ(there(), "12");  // one that a backup has is never freed, whatever the record says
    EXPECT_EQ(column("SELECT group_concat(container) FROM given_up"), "1");
}

TEST_F(Containers, OfEarlierDataFoldersGoOn) {
    makeEarlierFolder();
    fs::rename(data / "packages", data / "away");
    EXPECT_THROW(restart(), std::exception);  // without its packages it is a mistake
    fs::rename(data / "away", data / "packages");
    restart();
    EXPECT_EQ(there(), "12");
    EXPECT_FALSE(fs::exists(data / "orphans"));
    EXPECT_EQ(stored("i1", "a"), "a");
    EXPECT_EQ(putBlock("i2", "a", 1, "x"), 409);
    EXPECT_EQ(putBlock("i2", "b", 2, "hello"), 200);
    put("i2", "c", "c");
    EXPECT_EQ(end("i2"), 200);
    EXPECT_EQ(stored("i2", "b"), half + "hello");
    EXPECT_EQ(there(), "125");  // what has no digests takes no more packages
    EXPECT_EQ(read("i2", "b", 1) + read("i2", "b", 2), 400);
    put("i4", "empty", "no more");
    EXPECT_EQ(end("i4"), 200);
    EXPECT_EQ(there(), "1256");
    EXPECT_EQ(stored("i4", "empty"), "no more");
}

TEST_F(Containers, OfEarlierDataFoldersThatAPowerCutStruckHaveLostTheirRuns) {
    makeEarlierFolder("an earlier boot");
    restart();
    EXPECT_EQ(putInfo("i2", "new", 1), 409);
    EXPECT_EQ(end("i4"), 409);
    EXPECT_EQ(stored("i1", "a"), "a");
    EXPECT_EQ(offer("i5", {{"a"}}), "");
}

}  // namespace

}  // namespace dorvo
