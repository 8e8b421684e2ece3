// What a restore reads of a backup, and what it leaves at the service.
#include <algorithm>
#include <regex>

#include "catalog/sqlite.h"
#include "catalog/sqlite_versions.h"
#include "common/digest.h"
#include "testing/service_fixture.h"

namespace dorvo {

namespace {

namespace json = boost::json;

class Restores : public ServiceFixture {
protected:
    Answer block(const std::string& instance, const std::string& folder, const std::string& name,
                 const std::string& index) {
        return ask(downloadPath, place(instance, name, folder, index));
    }

    static json::object page(const std::string& path, const std::string& after, size_t limit) {
        return {{"machine", "pc"},
                {"jobinstanceid", "i1"},
                {"path", path},
                {"after", after},
                {"limit", limit}};
    }

    // The paths of an answer of ListFiles.
    static std::vector<std::string> paths(const json::object& answer) {
        std::vector<std::string> list;
        for (const json::value& item : answer.at("source").as_array()) {
            list.push_back(json::value_to<std::string>(item.at("path")));
        }
        return list;
    }
};

TEST_F(Restores, GiveBackWhatWasStoredBlockByBlock) {
    const std::string bytes = pattern(2 * blockBytes + 5, 7);
    offer("i1", {{"C:\\a"}});
    run("i1", "C:\\a", bytes);
    ASSERT_EQ(end("i1"), 200);
    ASSERT_EQ(offer("i2", {{"C:\\a"}}), "");  // carried over
    start("i2");
    ASSERT_EQ(end("i2"), 200);
    for (const std::string instance : {"i1", "i2"}) {
        const json::object info = ask(fileInfoPath, place(instance, "a", "C:")).json();
        EXPECT_EQ(info.at("totalblock").as_int64(), 3);
        EXPECT_EQ(info.at("totalsizeLow").as_int64(), int64_t{2 * blockBytes + 5});
        EXPECT_TRUE(info.at("compress").as_bool());
        std::string got;
        for (const char* index : {"1", "2", "3", "4"}) {  // the last is empty
            const Answer answer = block(instance, "C:", "a", index);
            ASSERT_EQ(answer.status, 200) << index;
            EXPECT_EQ(answer.header("Content-Type"), "application/octet-stream");
            EXPECT_EQ(answer.body.substr(0, 32), md5Text(answer.body.substr(32)));
            got += answer.body.substr(32);
        }
        EXPECT_TRUE(got == bytes);
    }
}

TEST_F(Restores, AskForAFileByFolderAndName) {
    offer("i1", {{"C:\\dir\\a"}, {"C:\\\u00e4"}, {"\\\\host\\share\\a"}});
    start("i1");
    json::object info = json::parse(fileInfo("i1", "C:\\dir\\a", 0)).as_object();
    int64_t number = 0xFFFFFFEF;  // all but the bit of a folder
    for (auto& attribute : info["attri"].as_object()) {
        attribute.value() = number--;
    }
    ASSERT_EQ(ask(uploadFilePath, info).status, 200);
    put("i1", "C:\\\u00e4", "a");
    put("i1", "\\\\host\\share\\a", "a");
    for (const char* folder : {"C:", "C:\\dir"}) {
        ASSERT_EQ(post(uploadFilePath, folderInfo("i1", folder)).status, 200);
    }
    ASSERT_EQ(end("i1"), 200);

    const json::object answer = ask(fileInfoPath, place("i1", "a", "C:\\dir")).json();
    EXPECT_EQ(answer.at("attri"), info.at("attri"));
    EXPECT_EQ(answer.at("type"), "file");
    const json::object root = ask(fileInfoPath, place("i1", "C:")).json();
    EXPECT_EQ(root.at("type"), "folder");
    EXPECT_EQ(root.at("totalblock").as_int64(), 0);
    EXPECT_EQ(block("i1", "", "C:", "1").status, 404);
    const std::tuple<const char*, const char*, int> rows[] = {
        {"C:", "dir", 200},
        {"C:", "\u00e4", 200},
        {"\\\\host\\share", "a", 200},
        {"C:\\DIR", "a", 404},
        {"C:\\dir\\", "a", 404},
        {"C:/dir", "a", 404},
        {"C:\\dir\\..\\dir", "a", 404},
        {"C:\\dir\\.", "a", 404},
        {"C:\\dir", "a:stream", 404},
        {"..\\..\\..", "catalog.db", 404},
        {"../../../../etc", "passwd", 404},
        {"", "/etc/passwd", 404},
        {"C:\\dir", "a\\..\\a", 404},
    };
    EXPECT_EQ(ask(fileInfoPath, place("i1", "dir", "C:"), laptop).status, 200);
    EXPECT_EQ(ask(fileInfoPath, place("i1", "dir", "C:"), bob).status, 404);
    for (const auto& [folder, name, status] : rows) {
        const json::object request = place("i1", name, folder);
        EXPECT_EQ(ask(fileInfoPath, request).status, status) << request;
        EXPECT_TRUE(status == 200 || ask(downloadPath, request).status == status) << request;
    }
}

TEST_F(Restores, CountBlocksFromOneInDecimal) {
    backup("i1", {{"a"}});
    for (const char* good : {"1", "2", "01"}) {
        EXPECT_EQ(block("i1", "", "a", good).status, 200) << good;
    }
    for (const std::string& none :
         {std::string("3"), std::string("4294967297"), std::string("9223372036854775808"),
          std::string("18446744073709551615"), std::string("18446744073709551617"),
          std::string(255, '9')}) {
        EXPECT_EQ(block("i1", "", "a", none).status, 404) << none;
    }
}

TEST_F(Restores, ListASubtreePageByPage) {
    // In the order of their bytes, folders apart from what lies in them.
    const std::vector<std::string> all = {
        "C:",      "C:\\",        "C:\\a",      "C:\\a b",           "C:\\a b\\x",    "C:\\a-",
        "C:\\a\\", "C:\\a\\b",    "C:\\a\\b c", "C:\\a\\b\\c",       "C:\\a\\\u00e4", "C:\\a]",
        "C:\\aa",  "C:\\a\u00e4", "C]",         "\u00e4\\\U0001F600"};
    std::vector<Offer> offers;
    for (const std::string& path : all) {
        offers.insert(offers.begin(), {path});
    }
    backup("i1", offers);
    std::vector<std::string> roots = all;
    roots.insert(roots.end(), {"", "C:\\b", "a", "\U0001F600"});
    Client client(server->port());
    const auto list = [&](const json::object& request) {
        return client.post(listFilesPath, json::serialize(request), alice).json();
    };
    for (const std::string& root : roots) {
        std::vector<std::string> expected;
        std::copy_if(all.begin(), all.end(), std::back_inserter(expected), [&](const auto& path) {
            return root.empty() || path == root || path.starts_with(root + "\\");
        });
        for (size_t limit = 1; limit <= expected.size() + 1; ++limit) {
            std::vector<std::string> got;
            std::string next;
            do {
                const json::object answer = list(page(root, next, limit));
                const auto part = paths(answer);
                ASSERT_LE(part.size(), limit);
                ASSERT_LE(got.size(), expected.size());
                got.insert(got.end(), part.begin(), part.end());
                next = json::value_to<std::string>(answer.at("next"));
                ASSERT_TRUE(next.empty() || (part.size() == limit && next == part.back())) << next;
            } while (!next.empty());
            ASSERT_EQ(got, expected) << root << " by " << limit;
        }
        for (const std::string& after : roots) {
            std::vector<std::string> behind;
            std::copy_if(expected.begin(), expected.end(), std::back_inserter(behind),
                         [&](const auto& path) { return path > after; });
            ASSERT_EQ(paths(list(page(root, after, 100))), behind) << root << " after " << after;
        }
    }
}

TEST_F(Restores, BoundAPageByItsItemsAndItsBytes) {
    backup("i1", {{"a"}});
    const auto fill = [&](const char* format, int count) {
        Database database((data / "catalog.db").string());
        database.exec("DELETE FROM files");
        Statement insert(database,
                         "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE"
                         " i < ?2) INSERT INTO files SELECT 1, CAST(printf(?1, i) AS BLOB), 1, x'',"
                         " 0, 0, 0, 0, 1, 0, NULL FROM n");
        insert.run(std::string_view(format), int64_t{count});
    };
    const auto sizes = [&] {
        std::vector<size_t> list;
        std::string next;
        do {
            const json::object answer = ask(listFilesPath, page("x", next, 1U << 30U)).json();
            list.push_back(paths(answer).size());
            next = json::value_to<std::string>(answer.at("next"));
        } while (!next.empty());
        return list;
    };
    fill("x\\%06d", 2000);
    EXPECT_EQ(sizes(), (std::vector<size_t>{1000, 1000}));
    fill("x\\%06d", 2001);
    EXPECT_EQ(sizes(), (std::vector<size_t>{1000, 1000, 1}));
    fill("x\\%0130998d", 9);  // 131000 bytes each, 8 are below 1 MiB
    EXPECT_EQ(sizes(), (std::vector<size_t>{9}));
    fill("x\\%0130998d", 11);
    EXPECT_EQ(sizes(), (std::vector<size_t>{9, 2}));
}

TEST_F(Restores, LeaveTheirOwnRecordAndTheBackupAsItWas) {
    backup("i1", {{"a"}});
    const json::object begin{{"jobdefinitionid", "r"}, {"jobinstanceid", "i1"}};
    const json::object answer = ask(startRestorePath, begin, laptop).json();
    const auto id = json::value_to<std::string>(answer.at("jobinstanceid"));
    EXPECT_TRUE(std::regex_match(id, std::regex("[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}")))
        << id;
    EXPECT_NE(ask(startRestorePath, begin).json().at("jobinstanceid"), answer.at("jobinstanceid"));
    EXPECT_EQ(answer.at("totalfiles").as_int64(), 1);
    EXPECT_EQ(answer.at("totaldirectories").as_int64(), 2);
    EXPECT_EQ(answer.at("totalsize").as_int64(), 3);

    const auto history = [&](const std::string& instance, const std::string& state,
                             const std::string& cookie) {
        return ask(historyPath, {{"instanceId", instance}, {"state", state}}, cookie).status;
    };
    EXPECT_EQ(addError(id, "a"), 200);
    EXPECT_EQ(addError(id, "a"), 200);
    EXPECT_EQ(history(id, "Paused", alice), 200);
    EXPECT_EQ(history(id, "Completed", alice), 200);
    EXPECT_EQ(addError(id, "b"), 200);
    const std::string before = everything();
    EXPECT_EQ(history(id, "x", bob), 404);
    EXPECT_EQ(history("i1", "x", alice), 404);
    EXPECT_EQ(history(id, std::string(65536, 'x'), alice), 413);
    const json::array errors{json::object{{"path", "c"}, {"code", 5}, {"reason", ""}}};
    EXPECT_EQ(ask(addErrorsPath, {{"jobinstanceid", id}, {"errors", errors}}, bob).status, 404);
    EXPECT_EQ(end(id), 404);
    EXPECT_EQ(everything(), before);

    restart();
    EXPECT_EQ(column("SELECT history FROM restores WHERE name = '" + id + "'"),
              R"({"instanceId":")" + id + R"(","state":"Completed"})");
    EXPECT_EQ(column("SELECT group_concat(path || code || reason) FROM restore_errors"),
              "a5denied,b5denied");
    EXPECT_EQ(column("SELECT count(*) FROM errors"), "0");
    EXPECT_EQ(state(id), "");
    EXPECT_EQ(offer("i2", {{"a"}}), "");
    EXPECT_EQ(offer("i3", {{"a"}}, "r"), "a");  // the restore's job has no backup to build on
}

TEST_F(Restores, OfManySourcesCountWhatIsLostOnce) {
    backup("i1", {{"a"}, {"b"}, {"c"}});
    backup("i2", {{"a"}});
    const auto missing = [&](json::object request, const std::string& instance) {
        request["jobinstanceid"] = instance;
        return ask(listFilesPath, request).json().at("missing").as_int64();
    };
    change("DELETE FROM files WHERE path = x'62'");
    for (const char* path : {"", "a", "b", "c"}) {
        EXPECT_EQ(missing(page(path, "", 10), "i1"), 1);
        change("DELETE FROM files WHERE path = x'63'");  // after the count
    }
    EXPECT_EQ(missing(page("", "", 10), "i2"), 0);
}

TEST_F(Restores, CountARepeatedErrorOnce) {
    server.reset();
    SqliteCatalog catalog((data / "catalog.db").string());
    catalog.addRestoreErrors(1, {{"a", 1, ""}, {"b", 1, ""}}, 3);
    catalog.addRestoreErrors(1, {{"a", 2, ""}, {"b", 2, ""}, {"c", 2, ""}, {"d", 2, ""}}, 3);
    catalog.addRestoreErrors(1, {{"b", 3, ""}}, 3);
    EXPECT_EQ(column("SELECT group_concat(path || code, ' ') FROM restore_errors"), "a2 b3 c2");
}

TEST_F(Restores, AreBoundedInNumberAndErrors) {
    backup("i1", {{"a"}});
    const auto open = [&](const std::string& cookie) {
        return json::value_to<std::string>(
            ask(startRestorePath, {{"jobdefinitionid", "r"}, {"jobinstanceid", "i1"}}, cookie)
                .json()
                .at("jobinstanceid"));
    };
    const auto knows = [&](const std::string& id) {
        return ask(historyPath, {{"instanceId", id}}).status == 200;
    };
    const std::string first = open(alice);
    const std::string second = open(laptop);
    addError(first, "x");
    change(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 998)"
        "INSERT INTO restores(name, machine, definition, instance) SELECT 'r' || i, 1, 'r', 1 FROM "
        "n");
    EXPECT_TRUE(knows(first));
    const std::string last = open(alice);
    EXPECT_FALSE(knows(first));
    EXPECT_TRUE(knows(second) && knows(last));
    EXPECT_EQ(column("SELECT count(*) FROM restore_errors"), "0");

    change(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 99999)"
        "INSERT INTO restore_errors SELECT id, CAST(i AS BLOB), 5, '' FROM n, restores"
        " WHERE id = (SELECT max(id) FROM restores)");
    EXPECT_EQ(addError(last, "kept"), 200);
    EXPECT_EQ(addError(last, "not kept"), 200);
    EXPECT_EQ(column("SELECT count(*) || max(path) FROM restore_errors"), "100000kept");
}

TEST_F(Restores, UsersHaveOneSetOfKeys) {
    const std::string first = md5Text("first");
    const auto held = [&](const std::string& cookie) {
        return json::value_to<std::string>(ask(getKeysPath, {}, cookie).json().at("md5"));
    };
    const auto give = [&](const std::string& md5) {
        return ask(exportKeysPath, {{"md5", md5}}).status;
    };
    EXPECT_EQ(held(alice), "");
    EXPECT_EQ(give(first), 200);
    EXPECT_EQ(give(first), 200);
    EXPECT_EQ(give(md5Text("second")), 409);
    restart();
    EXPECT_EQ(held(alice) + held(laptop), first + first);
    EXPECT_EQ(held(bob), "");
}

TEST_F(Restores, DatabasesOfAnEarlierVersionGoOnAndOfALaterOneAreRefused) {
    server.reset();
    const auto path = data / "catalog.db";
    for (const char* suffix : {"", "-wal", "-shm"}) {
        std::filesystem::remove(path.string() + suffix);
    }
    {
        Database old(path.string());
        old.exec(sqliteVersion1);
        old.exec("INSERT INTO users VALUES(7, 'carol', 'hash')");
    }
    for (int opened = 0; opened < 2; ++opened) {
        SqliteCatalog catalog(path.string());
        EXPECT_EQ(catalog.findPassword("carol"), "hash");
        EXPECT_TRUE(catalog.putKeys(7, "md5"));
    }
    {
        Database later(path.string());
        later.exec("PRAGMA user_version=1000");
    }
    EXPECT_THROW(SqliteCatalog(path.string()), std::exception);
    EXPECT_EQ(column("SELECT keysmd5 FROM users"), "md5");
}

}  // namespace

}  // namespace dorvo
