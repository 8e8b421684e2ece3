// What a start makes of a catalog and packages that do not go together, and what becomes of
// requests while the packages are away.
#include "reconcile.h"

#include <fstream>
#include <map>
#include <regex>
#include <thread>

#include "catalog/sqlite.h"
#include "packages/package_marker.h"
#include "testing/service_fixture.h"

namespace dorvo {

namespace {

namespace fs = std::filesystem;

class Reconcile : public ServiceFixture {
protected:
    fs::path orphan(int number) const {
        return data / "orphans" / (std::to_string(number) + ".pkg");
    }

    // The catalog's files, to be put back later; another process' copy would be no other.
    void keepCatalog(const fs::path& to, bool withLog = true) {
        fs::create_directory(to);
        for (const char* suffix : {"", "-wal"}) {
            const fs::path file = data / (std::string("catalog.db") + suffix);
            if (fs::exists(file) && (withLog || *suffix == '\0')) {
                fs::copy_file(file, to / file.filename());
            }
        }
    }
    void putCatalogBack(const fs::path& from) {
        for (const char* suffix : {"", "-wal", "-shm"}) {
            fs::remove(data / (std::string("catalog.db") + suffix));
        }
        fs::copy(from, data);
    }

    // Why the server does not start.
    std::string refusal() {
        server.reset();
        try {
            server = std::make_unique<StorageServer>(options, [this](const std::string& line) {
                // Not that it starts, but what it finds.
                lines += line.starts_with("service: start: ") ? line + "\n" : "";
            });
        } catch (const std::exception& error) {
            return error.what();
        }
        return "";
    }

    std::map<fs::path, std::string> packages() const {
        std::map<fs::path, std::string> all;
        for (const auto& entry : fs::recursive_directory_iterator(data)) {
            if (entry.path().extension() == ".pkg") {
                all[entry.path()] = contentOf(entry.path());
            }
        }
        return all;
    }

    std::string lines;  // of the last start's log
};

TEST_F(Reconcile, MovesAsideWhatTheCatalogDoesNotKnow) {
    backup("i1", {{"a"}});
    server.reset();
    for (const int number : {2, 7}) {
        fs::create_directories(package(number).parent_path());
        std::ofstream(package(number)) << "stranger " << number;
    }
    fs::create_directory(data / "orphans");
    std::ofstream(orphan(7)) << "older";
    const fs::path endless = data / "packages" / "ff" / "9223372036854775807.pkg";
    fs::create_directory(endless.parent_path());
    std::ofstream(endless) << "nobody's";
    ASSERT_EQ(refusal(), "");
    EXPECT_EQ(contentOf(orphan(2)), "stranger 2");
    EXPECT_EQ(contentOf(orphan(7)), "older");
    EXPECT_EQ(contentOf(data / "orphans" / "7-2.pkg"), "stranger 7");
    EXPECT_NE(lines.find(orphan(2).string()), std::string::npos) << lines;
    EXPECT_FALSE(fs::exists(package(2)));
    EXPECT_TRUE(fs::exists(endless));
    EXPECT_EQ(stored("i1", "a"), "a");
    backup("i2", {{"b"}});
    EXPECT_EQ(contentOf(package(8)), "b");  // and not behind the last number that there is
    lines.clear();
    EXPECT_EQ(refusal(), "");
    EXPECT_EQ(lines, "");
}

TEST_F(Reconcile, LosesNothingToAnOlderCatalogThatIsPutBack) {
    backup("i1", {{"a"}});
    run("i2", "b", "known to both");
    offer("offered", {{"a"}});  // which is carried over
    offer("started", {{"a"}});
    start("started");
    keepCatalog(data / "older");  // of this service; its end makes it an older one
    put("i2", "c", "known to the later one");
    ASSERT_EQ(end("i2"), 200);
    backup("i3", {{"d"}});
    run("open", "o", "under way");
    restart();
    server.reset();
    keepCatalog(data / "later");
    const auto before = packages();
    putCatalogBack(data / "older");

    ASSERT_EQ(refusal(), "");
    EXPECT_EQ(stored("i1", "a"), "a");
    EXPECT_EQ(state("i2"), "cancelled");
    EXPECT_EQ(state("offered") + state("started"), "cancelledcancelled");
    EXPECT_EQ(contentOf(orphan(2)), before.at(package(2)));
    EXPECT_EQ(contentOf(orphan(3)), before.at(package(3)));
    EXPECT_NE(lines.find("i2"), std::string::npos) << lines;
    backup("i4", {{"e"}});
    cancel("i2");

    // And the later one again, as the operator's page has it.
    server.reset();
    putCatalogBack(data / "later");
    for (const int number : {2, 3}) {
        fs::rename(orphan(number), package(number));
    }
    ASSERT_EQ(refusal(), "");
    EXPECT_EQ(stored("i1", "a") + stored("i2", "b") + stored("i2", "c") + stored("i3", "d"),
              "aknown to bothknown to the later oned");
    EXPECT_EQ(contentOf(data / "orphans" / "5.pkg"), "e");
    // The packages have been in service without it.
    EXPECT_EQ(state("open"), "cancelled");
    EXPECT_EQ(contentOf(orphan(4)), "under way");
}

// Without an end of service in between.
TEST_F(Reconcile, KnowsACopyOfACatalogThatIsBeingServed) {
    const auto generation = [this] { return readMarker(data / "packages")->generation; };
    struct Row {
        const char* name;
        bool paced;
        std::function<void()> later;
    };
    const Row rows[] = {
        // cppcheck-suppress constStatement
        {"a backup has been completed", false,
         [this] {
             put("run", "b", "behind");
             EXPECT_EQ(end("run"), 200);
         }},
        {"a file has been carried over", true, [this] { offer("run", {{"a"}}); }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        again();
        backup("base", {{"a"}});
        run("run", "c", "known ");
        options.generationPace = std::chrono::milliseconds(row.paced ? 1 : 3'600'000);
        restart();
        keepCatalog(data / "copy");
        // Of the copy, which may have caught a commit that nobody could see yet.
        fs::copy(data / "copy", data / "looked at");
        const int64_t copied =
            SqliteCatalog((data / "looked at" / "catalog.db").string()).service().generation;
        row.later();
        for (int i = 0; row.paced && generation() <= copied && i < 10000; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        const auto killed = readMarker(data / "packages");
        server.reset();
        const auto whole = packages().at(package(2));
        putCatalogBack(data / "copy");
        writeMarker(data / "packages", *killed);
        ASSERT_EQ(refusal(), "");
        EXPECT_EQ(state("run"), "cancelled");
        EXPECT_EQ(contentOf(orphan(2)), whole);
    }
}

TEST_F(Reconcile, TakesTheTailThatAPowerCutLeavesForItsOwn) {
    run("i1", "a", "known");
    server.reset();
    column("UPDATE service SET boot = 'boot 1'");
    std::ofstream(package(1), std::ios::app) << " and lost";
    restart("boot 2");
    put("i1", "b", " new");
    EXPECT_EQ(contentOf(package(1)), "known and lost new");
    EXPECT_EQ(cancel("i1"), 200);
    restart();
    EXPECT_FALSE(fs::exists(package(1)));
    EXPECT_FALSE(fs::exists(data / "orphans"));
}

TEST_F(Reconcile, KeepsTheTailThatACopyWithoutItsLogDoesNotKnow) {
    run("i1", "a", "known");
    server.reset();
    keepCatalog(data / "copy");
    const auto marker = readMarker(data / "packages");
    restart();
    put("i1", "b", " and acknowledged");
    server.reset();
    putCatalogBack(data / "copy");
    ASSERT_TRUE(marker);
    writeMarker(data / "packages", *marker);  // as if the copy were of the last service
    ASSERT_EQ(refusal(), "");
    put("i1", "c", " new");
    EXPECT_EQ(contentOf(package(1)), "known and acknowledged new");
    EXPECT_EQ(stored("i1", "c"), " new");
    backup("i2", {{"other"}});
    EXPECT_EQ(cancel("i1"), 200);
    column("INSERT INTO damaged VALUES(1, 0), (2, 9)");
    restart();
    EXPECT_EQ(contentOf(orphan(1)), "known and acknowledged new");
    // And nothing else is kept of it.
    EXPECT_EQ(column("SELECT group_concat(container) FROM digests"), "2");
    EXPECT_EQ(column("SELECT group_concat(container) FROM damaged"), "2");
}

TEST_F(Reconcile, RefusesWhatMustBeAMistakeAndChangesNothing) {
    backup("i1", {{"a"}});
    keepCatalog(data / "served");
    server.reset();
    column("VACUUM");  // so that its pages are others than those of the log that was just kept
    fs::create_directories(package(9).parent_path());
    std::ofstream(package(9)) << "stranger";
    keepCatalog(data / "whole");
    const auto whole = packages();
    const fs::path catalog = data / "catalog.db";
    struct Row {
        const char* name;
        std::function<void()> happens;
        const char* says;
    };
    const Row rows[] = {
        {"no catalog", [&] { fs::remove(catalog); }, "knows no backup"},
        {"an empty one", [&] { fs::resize_file(catalog, 0); }, "knows no backup"},
        {"a new one",
         [&] {
             fs::remove(catalog);
             SqliteCatalog(catalog.string()).addUser("u", "p");
         },
         "knows no backup"},
        {"a damaged page",
         [&] {
             const int64_t page =
                 std::stoll(column("SELECT rootpage FROM sqlite_master WHERE name = 'containers'"));
             std::fstream file(catalog, std::ios::in | std::ios::out | std::ios::binary);
             file.seekp((page - 1) * 4096 + 3);
             file.put('\1');  // the number of its cells
         },
         "is damaged"},
        {"another's log",
         [&] { fs::copy_file(data / "served" / "catalog.db-wal", data / "catalog.db-wal"); },
         "is damaged"},
        {"no database", [&] { std::ofstream(catalog) << std::string(9000, 'x'); }, "is damaged"},
        {"no packages", [&] { fs::rename(data / "packages", data / "away"); }, "are not in"},
        {"an empty folder",
         [&] {
             fs::rename(data / "packages", data / "away");
             fs::create_directory(data / "packages");
         },
         "are not in"},
        {"another's packages",
         [&] {
             writeMarker(data / "packages", {"other", 1});
         },
         "another catalog"},
    };
    const auto marker = readMarker(data / "packages");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        row.happens();
        const std::string bytes = contentOf(catalog);
        const std::string says = refusal();
        EXPECT_TRUE(contentOf(catalog) == bytes);
        EXPECT_NE(says.find(row.says), std::string::npos) << says;
        if (fs::exists(data / "away")) {
            EXPECT_TRUE(!fs::exists(data / "packages") || fs::remove(data / "packages"));
            fs::rename(data / "away", data / "packages");
        }
        EXPECT_EQ(packages(), whole);
        EXPECT_NE(fs::exists(catalog), row.name == std::string("no catalog"));
        writeMarker(data / "packages", *marker);
        putCatalogBack(data / "whole");
    }
    EXPECT_EQ(refusal(), "");
    EXPECT_EQ(stored("i1", "a"), "a");
}

TEST_F(Reconcile, PackagesThatGoAwayMeanwhileAreWaitedFor) {
    backup("i1", {{"a"}});
    run("i2", "b", "b");
    run("i3", "c", "c");
    EXPECT_EQ(read("i1", "a"), 200);
    for (const bool emptyFolder : {false, true}) {
        fs::rename(data / "packages", data / "away");
        if (emptyFolder) {
            fs::create_directory(data / "packages");
        }
        EXPECT_EQ(putInfo("i2", "d", 1), 200);
        EXPECT_EQ(putBlock("i2", "d", 1, "d"), 503);
        EXPECT_EQ(putBlock("i2", "b", 1, "b"), 503);  // a repeat: what is there is not forgotten
        EXPECT_EQ(read("i1", "a"), 503);
        EXPECT_EQ(addError("i2", "d"), 200);
        EXPECT_EQ(end("i2"), 503);
        EXPECT_EQ(cancel("i3"), 200);
        EXPECT_EQ(fs::exists(data / "packages"), emptyFolder);
        EXPECT_TRUE(!emptyFolder || fs::is_empty(data / "packages"));
        fs::remove(data / "packages");
        fs::rename(data / "away", data / "packages");
    }
    EXPECT_EQ(read("i1", "a"), 200);
    EXPECT_TRUE(fs::exists(package(3)));
    EXPECT_EQ(end("i2"), 200);
    EXPECT_EQ(cancel("i3"), 200);  // frees what could not be freed then
    EXPECT_FALSE(fs::exists(package(3)));
}

}  // namespace

}  // namespace dorvo
