// Bytes that the disk has lost or changed: what is said of them, and how they come back.
#include <fcntl.h>
#include <unistd.h>

#include "catalog/sqlite.h"
#include "common/service_error.h"
#include "endpoints/backup_endpoints.h"
#include "packages/backup_packages.h"
#include "testing/service_fixture.h"

namespace dorvo {

namespace {

namespace fs = std::filesystem;
namespace json = boost::json;

class Damage : public ServiceFixture {
protected:
    // Changes one bit of the file.
    static void flip(const fs::path& file, off_t offset) {
        const FileDescriptor fd(::open(file.c_str(), O_RDWR));
        char byte = 0;
        ASSERT_EQ(::pread(fd.get(), &byte, 1, offset), 1);
        byte = static_cast<char>(byte ^ 4);
        ASSERT_EQ(::pwrite(fd.get(), &byte, 1, offset), 1);
    }

    // The paths of a whole list, and what the list says it lacks.
    std::string list(const std::string& instance, const std::string& below = "",
                     size_t limit = 1000) {
        std::string result;
        std::string next;
        json::object answer;
        do {
            answer = ask(listFilesPath, {{"machine", "pc"},
                                         {"jobinstanceid", instance},
                                         {"path", below},
                                         {"after", next},
                                         {"limit", limit}})
                         .json();
            for (const json::value& item : answer.at("source").as_array()) {
                result += json::value_to<std::string>(item.at("path")) + " ";
            }
            next = json::value_to<std::string>(answer.at("next"));
        } while (!next.empty());
        return result + std::to_string(answer.at("missing").as_int64());
    }

    // The paths that the end of the backup names, joined with commas.
    std::string namedAtEnd(const std::string& instance) {
        const Answer answer = endJob(instance);
        std::string names;
        if (answer.status == 409 && answer.json().contains("incomplete")) {
            const json::object body = answer.json();
            for (const json::value& path : body.at("incomplete").as_array()) {
                names += (names.empty() ? "" : ",") + json::value_to<std::string>(path);
            }
        }
        return names + "<" + std::to_string(answer.status) + ">";
    }
};

TEST_F(Damage, IsToldApartFromAStorageThatIsDownAndHealsWithTheNextBackup) {
    const std::string large = pattern(70 * blockBytes + 10);  // the digests of which take two rows
    struct Row {
        const char* name;
        std::function<void()> strike;
        std::vector<int64_t> lost;  // blocks of "large"
    };
    const int64_t begin = 5;  // behind "small"
    const auto flips = [&](int64_t at) { return [=, this] { flip(package(1), begin + at); }; };
    const Row rows[] = {
        {"a bit of the first block", flips(0), {1}},
        {"a bit of a block in the first row", flips(63 * blockBytes), {64}},
        {"a bit of a block in the second row", flips(64 * blockBytes), {65}},
        {"a bit of the last byte", flips(70 * blockBytes + 9), {71}},
        {"the end is cut off",
         [&] { fs::resize_file(package(1), begin + 70 * blockBytes + 9); },
         {71}},
        {"its digests are lost",
         [&] { change("DELETE FROM digests WHERE position > 5"); },
         {65, 66, 67, 68, 69, 70, 71}},
        {"its digests are changed",
         [&] { change("UPDATE digests SET md5s = zeroblob(80) WHERE position > 5"); },
         {65, 66, 67, 68, 69, 70, 71}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        again();
        offer("i1", {{"large"}, {"small"}});
        run("i1", "small", "small");
        put("i1", "large", large);
        ASSERT_EQ(end("i1"), 200);
        ASSERT_EQ(offer("i2", {{"large"}, {"small"}}), "");
        start("i2");
        row.strike();
        ASSERT_EQ(offer("early", {{"large"}}), "");  // nobody knows yet
        for (int64_t k = 1; k <= 71; ++k) {
            const bool lost = std::find(row.lost.begin(), row.lost.end(), k) != row.lost.end();
            ASSERT_EQ(read("i1", "large", k), lost ? 410 : 200) << k;
        }
        EXPECT_EQ(read("i1", "small"), 200);
        EXPECT_EQ(offer("i3", {{"large"}, {"small"}}), "large");
        EXPECT_EQ(namedAtEnd("i2"), "large<409>");
        restart();
        EXPECT_EQ(addError("i2", "large"), 200);
        EXPECT_EQ(end("i2"), 200);
        EXPECT_EQ(offer("i4", {{"large"}, {"small"}}), "large");
        run("i4", "large", large);
        EXPECT_EQ(end("i4"), 200);
        EXPECT_EQ(read("i4", "large", row.lost.front()), 200);
        EXPECT_EQ(offer("i5", {{"large"}, {"small"}}), "");
        EXPECT_EQ(list("i2"), "small 0");
    }
}

TEST_F(Damage, OfAWholeContainerIsSeenWhenABackupEnds) {
    backup("i1", {{"a"}, {"b"}});
    ASSERT_EQ(offer("i2", {{"a"}, {"b"}, {"c"}}), "c");
    run("i2", "c", "c");
    fs::remove(package(1));
    const std::string refused = namedAtEnd("i2");
    EXPECT_EQ(refused, "a,b<409>");
    EXPECT_EQ(namedAtEnd("i2"), refused);
    EXPECT_EQ(offer("other", {{"a"}, {"b"}}), "a,b");  // that too would have built on i1
    put("i2", "a", "a");
    EXPECT_EQ(addError("i2", "b"), 200);
    EXPECT_EQ(end("i2"), 200);
    EXPECT_EQ(stored("i2", "a") + stored("i2", "b") + stored("i2", "c"), "anonec");
    EXPECT_EQ(offer("i3", {{"a"}, {"b"}, {"c"}}), "b");
    EXPECT_EQ(read("i1", "a"), 410);
}

TEST_F(Damage, OfRowsIsNoShortList) {
    const std::vector<Offer> six = {{"d"}, {"d\\a"}, {"d\\b"}, {"e"}, {"f"}, {"g"}};
    struct Row {
        const char* name;
        const char* sql;
        const char* all;
        const char* below;  // d
        int status;         // of reading d\b
    };
    const Row rows[] = {
        {"none", "SELECT 1", "d d\\a d\\b e f g 0", "d d\\a d\\b 0", 200},
        {"rows are gone", "DELETE FROM files WHERE path > x'65'", "d d\\a d\\b e 2",
         "d d\\a d\\b 2", 200},
        {"a row has moved away", "UPDATE files SET path = x'7a' WHERE path = CAST('d\\b' AS BLOB)",
         "d d\\a e f g 1", "d d\\a 1", 404},
        {"its time", "UPDATE files SET mtime = mtime + 4 WHERE path = CAST('d\\b' AS BLOB)",
         "d d\\a e f g 1", "d d\\a 1", 410},
        {"its size", "UPDATE files SET size = size + 1 WHERE path = CAST('d\\b' AS BLOB)",
         "d d\\a e f g 1", "d d\\a 1", 410},
        {"its place", "UPDATE files SET offset = 0 WHERE path = CAST('d\\b' AS BLOB)",
         "d d\\a e f g 1", "d d\\a 1", 410},
        {"its blocks", "UPDATE files SET blocks = blocks + 1 WHERE path = CAST('d\\b' AS BLOB)",
         "d d\\a e f g 1", "d d\\a 1", 410},
        {"below none", "UPDATE files SET blocks = -1 WHERE path = CAST('d\\b' AS BLOB)",
         "d d\\a e f g 1", "d d\\a 1", 410},
        {"its kind", "UPDATE files SET kind = 2 WHERE path = CAST('d\\b' AS BLOB)",
         "d d\\a e f g 1", "d d\\a 1", 410},
        {"its attributes", "UPDATE files SET attributes = zeroblob(36) WHERE path = x'67'",
         "d d\\a d\\b e f 1", "d d\\a d\\b 1", 200},
        {"a backup of an earlier version has no count, no seals",
         "UPDATE instances SET items = -1; UPDATE files SET seal = NULL;"
         "DELETE FROM files WHERE path = x'67'",
         "d d\\a d\\b e f 0", "d d\\a d\\b 0", 200},
        {"nor digests", "UPDATE containers SET digests = 0; DELETE FROM digests",
         "d d\\a d\\b e f g 0", "d d\\a d\\b 0", 200},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        again();
        backup("i1", six);
        change(row.sql);
        for (const size_t limit : {1U, 2U, 1000U}) {
            EXPECT_EQ(list("i1", "", limit), row.all);
            EXPECT_EQ(list("i1", "d", limit), row.below);
        }
        for (const auto path : {downloadPath, fileInfoPath}) {
            EXPECT_EQ(ask(path, place("i1", "b", "d")).status, row.status);
        }
        // What is not sound is not carried on into the next one.
        const std::string wanted = offer("i2", six);
        start("i2");
        const std::string named = namedAtEnd("i2");
        EXPECT_EQ(named == "<200>",
                  wanted.empty() && row.status == 200 && std::string_view(row.all).ends_with("0"))
            << named << " " << wanted;
    }
}

TEST_F(Damage, LeavesNoRunForEver) {
    offer("young", {{"a"}});
    start("young");
    offer("pending", {{"a"}});
    run("old", "a", "a");
    backup("done", {{"b"}});
    change("UPDATE instances SET idle = 1000, damaged = (name = 'old') WHERE name <> 'young'");
    change("UPDATE instances SET idle = 999 WHERE name = 'young'");
    options.runLifetime = std::chrono::seconds(1000);
    restart();
    // The first look comes with the start, and is finished before a stop.
    server.reset();
    EXPECT_EQ(column("SELECT group_concat(state) FROM instances WHERE name IN ('pending', 'old')"),
              "3,3");
    EXPECT_FALSE(fs::exists(package(1)));
    restart();
    EXPECT_EQ(state("done"), "completed");
    EXPECT_EQ(column("SELECT idle FROM instances WHERE name = 'young'"), "999");
    EXPECT_EQ(start("young"), 200);
    EXPECT_EQ(column("SELECT idle FROM instances WHERE name = 'young'"), "0");
}

TEST_F(Damage, OfACrashIsWhatIsNotOnTheDisk) {
    const std::string bytes = pattern(66 * blockBytes + 5);
    struct Row {
        const char* name;
        std::function<void()> strike;
        const char* boot;  // of the next start
        int64_t blocks;    // that are left
        bool unseen;       // damage that nobody looks for
    };
    const auto flipBlock = [&](int64_t k) { flip(package(1), 1 + (k - 1) * blockBytes); };
    const Row rows[] = {
        {"everything was on the disk", [] {}, "boot 2", 67, false},
        {"a block was not", [&] { flipBlock(2); }, "boot 2", 1, false},
        {"the last block was not", [&] { flipBlock(67); }, "boot 2", 66, false},
        {"the length was not", [&] { fs::resize_file(package(1), 2 * blockBytes); }, "boot 2", 1,
         false},
        {"nothing was", [&] { fs::remove(package(1)); }, "boot 2", 0, false},
        {"a sync point covers all",
         [&] {
             change("UPDATE service SET synced = 100");
             flipBlock(2);
         },
         "boot 2", 67, true},
        {"a sync point covers the first 64 blocks",
         [&] {
             change("UPDATE digests SET stamp = 0 WHERE position = 1");
             flipBlock(2);
             flipBlock(66);
         },
         "boot 2", 65, true},
        {"it was no power cut", [] {}, "boot 1", 67, false},
        // The disk has refused it, which nobody lived to write down.
        {"it was no power cut, and a block was not", [&] { flipBlock(2); }, "boot 1", 1, false},
        {"an earlier version has stored it",
         [&] { change("UPDATE containers SET digests = 0; DELETE FROM digests"); }, "boot 2", 0,
         false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        again();
        offer("i1", {{"a"}, {"never sent"}});
        run("i1", "first", "x");
        put("i1", "a", bytes);
        offer("i2", {{"a"}});
        server.reset();
        change("UPDATE service SET boot = 'boot 1'");  // as if it had not ended in order
        row.strike();
        restart(row.boot);

        const int lost = std::string_view(row.boot) == "boot 1" ? 200 : 409;
        EXPECT_EQ(offer("i2", {{"b"}}), lost == 200 ? "b" : "<409>");
        EXPECT_EQ(start("i2"), lost);
        EXPECT_EQ(start("i1"), 200);
        const json::object told = post(uploadFilePath, fileInfo("i1", "a", bytes.size())).json();
        ASSERT_EQ(told.at("blocks").as_int64(), row.blocks);
        EXPECT_EQ(addError("i1", "never sent"), 200);
        const bool first = row.blocks > 0;
        EXPECT_EQ(namedAtEnd("i1"), row.blocks == 67 ? "<200>" : first ? "a<409>" : "a,first<409>");
        if (!first) {
            put("i1", "first", "x");
        }
        for (int64_t k = row.blocks + 1; k <= 67; ++k) {
            ASSERT_EQ(putBlock("i1", "a", k,
                               bytes.substr(static_cast<size_t>(k - 1) * blockBytes, blockBytes)),
                      200);
        }
        EXPECT_EQ(end("i1"), 200);
        EXPECT_EQ(stored("i1", "a") == bytes, !row.unseen);
    }
}

// As a page of the table that the disk has spoilt may give it.
TEST_F(Damage, OfTheOrderOfRowsIsNoWholeBackup) {
    class Disordered : public SqliteCatalog {
    public:
        using SqliteCatalog::SqliteCatalog;
        std::vector<CatalogItem> listItems(int64_t instance, std::string_view after,
                                           size_t limit) override {
            auto items = SqliteCatalog::listItems(instance, after, limit);
            std::swap(items[1], items[2]);
            return items;
        }
    };
    start("i1");
    for (const char* path : {"a", "b", "c"}) {
        put("i1", path, path);
    }
    server.reset();
    FileBlockStore blocks(data / "packages");
    DiskRoom room(data, 0, {});
    Disordered catalog((data / "catalog.db").string());
    BackupEndpoints endpoints(catalog, catalog, blocks, room, [] {});
    const Session session{1, 1, "alice", "pc"};
    for (const char* state : {"at its end", "after a power cut"}) {
        SCOPED_TRACE(state);
        if (state == std::string_view("at its end")) {
            const auto rest = endpoints.endJob(session, {{"jobinstanceid", "i1"}, {"endtime", ""}});
            EXPECT_THROW(rest(), ServiceError);
        } else {
            change("UPDATE instances SET damaged = 0");
            keepWhatIsWhole(catalog, blocks);
        }
        EXPECT_TRUE(catalog.findInstance(1, "i1")->damaged);
    }
}

}  // namespace

}  // namespace dorvo
