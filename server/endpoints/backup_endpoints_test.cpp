// What a backup is from its first request to its last, over HTTP.
#include "catalog/sqlite.h"
#include "testing/service_fixture.h"

namespace dorvo {

namespace {

namespace json = boost::json;

class Backup : public ServiceFixture {
protected:
    // The instances that an answer lists, and where the next begins.
    std::string list(const char* machine, const char* job, json::object page = {}) {
        page["machine"] = machine;
        page["jobdefinitionid"] = job;
        const json::object answer = ask(listInstancesPath, page).json();
        std::string names;
        for (const json::value& item : answer.at("instances").as_array()) {
            names += json::value_to<std::string>(item.at("jobinstanceid")) + " ";
        }
        const json::value* const next = answer.if_contains("next");
        return next == nullptr ? names : names + "then " + json::value_to<std::string>(*next);
    }
};

TEST_F(Backup, ListsOnlyTheUsersOwn) {
    backup("i1", {{"a"}});
    offer("i2", {{"a"}}, "other job");
    offer("i3", {{"a"}}, "job", laptop);
    offer("i4", {{"a"}}, "job", bob);
    cancel("i2");
    EXPECT_EQ(list("", ""), "i1 i2 i3 ");
    EXPECT_EQ(list("laptop", ""), "i3 ");
    EXPECT_EQ(list("pc", "other job"), "i2 ");
    EXPECT_EQ(state("i2") + state("i3"), "cancelledrunning");
    EXPECT_EQ(
        post(listInstancesPath, R"({"machine":"pc","jobdefinitionid":"job"})").body,
        R"({"instances":[{"machine":"pc","jobdefinitionid":"job","jobinstanceid":"i1",)"
        R"("starttime":"2011-3-4 05:06:07","endtime":"2011-3-4 06:06:07",)"
        R"("state":"completed","totalfiles":1,"totaldirectories":2,"totalsize":3,"errors":0}]})");
}

TEST_F(Backup, HasAnIdOfItsUsersOwn) {
    backup("i1", {{"a"}});
    const std::string before = column("SELECT group_concat(path) FROM files WHERE instance = 1");
    EXPECT_EQ(offer("i1", {{"a"}, {"b"}}, "another job", bob, true), "a,b");
    EXPECT_EQ(postAs(bob, cancelJobPath, R"({"id":"i1"})").status, 200);
    EXPECT_EQ(state("i1"), "completed");
    EXPECT_EQ(column("SELECT group_concat(path) FROM files WHERE instance = 1"), before);
    EXPECT_EQ(start("i1"), 200);
}

TEST_F(Backup, ListsInPagesForThoseWhoKnowOfThem) {
    for (const char* name : {"i1", "i2", "i3"}) {
        offer(name, {{"a"}});
        offer(std::string("bobs ") + name, {{"a"}}, "job", bob);
    }
    offer("other", {{"a"}}, "other job");
    const auto page = [&](const char* after, int limit) {
        return list("pc", "job", {{"after", after}, {"limit", limit}});
    };
    EXPECT_EQ(page("", 2), "i1 i2 then i2");
    EXPECT_EQ(page("i2", 2), "i3 then ");
    EXPECT_EQ(page("", 3), "i1 i2 i3 then ");
    EXPECT_EQ(page("i3", 5), "then ");
    // More than a page holds: without pages it is still all.
    change(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2000)"
        "INSERT INTO instances(user, name, machine, definition, base, state, compress)"
        " SELECT 1, 'n' || i, 1, 'job', 0, 3, 0 FROM n");
    EXPECT_TRUE(page("", 100000).ends_with(" n997 then n997"));
    EXPECT_TRUE(list("pc", "job").ends_with(" n1999 n2000 "));
}

TEST_F(Backup, OneBadNameIsRefusedAlone) {
    const std::string nul("n\0l", 3);
    const std::string longest(131072, 'x');
    const std::string longer = longest.substr(1) + "\u00e9";
    EXPECT_EQ(offer("i1", {{"a"}, {""}, {nul}, {longer}, {longest}, {"b"}}),
              "a,," + nul + "," + longer + "," + longest + ",b");
    start("i1");
    for (const std::string& bad : {std::string(), nul, longer}) {
        EXPECT_EQ(putInfo("i1", bad, 1), 400);
        EXPECT_EQ(addError("i1", bad), 200);
    }
    EXPECT_EQ(column("SELECT group_concat(substr(path, 1, 3) || length(path)) FROM errors"),
              "?1,n?l3,xxx131071");
    const json::object endless{{"path", "e"}, {"code", 5}, {"reason", nul + longer.substr(126979)}};
    EXPECT_EQ(ask(addErrorsPath, {{"jobinstanceid", "i1"}, {"errors", {endless}}}).status, 200);
    EXPECT_EQ(column("SELECT max(substr(reason, 1, 4) || length(reason)) FROM errors"), "n?lx4095");
    put("i1", "a", "a");
    put("i1", longest, "x");
    EXPECT_EQ(end("i1"), 409);
    put("i1", "b", "b");
    EXPECT_EQ(end("i1"), 200);
    EXPECT_EQ(offer("i2", {{"a"}, {nul}, {"b"}}), nul);
}

TEST_F(Backup, TakesErrorsUpToAMillion) {
    start("i1");
    change(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 999999)"
        "INSERT INTO errors SELECT 1, CAST(printf('%07d', i) AS BLOB), 5, '' FROM n");
    EXPECT_EQ(addError("i1", "x"), 200);
    EXPECT_EQ(addError("i1", "y"), 409);
    EXPECT_EQ(column("SELECT max(path) FROM errors"), "x");
}

TEST_F(Backup, CarriesOverFromTheBackupOfTheSameJobThatWasCompletedLast) {
    offer("i1", {{"a", 1}});
    run("i1", "a", "first", 1);
    EXPECT_EQ(offer("i2", {{"a", 1}}), "a");  // i1 is not completed
    backup("between", {{"a", 2}});
    EXPECT_EQ(end("i1"), 200);
    EXPECT_EQ(offer("i2", {{"a", 1}}), "a");  // nor was it when i2 was opened
    EXPECT_EQ(offer("i3", {{"a", 2}}), "a");
    EXPECT_EQ(offer("i3", {{"a", 1}}), "");
    EXPECT_EQ(offer("i4", {{"a"}}, "other job"), "a");
    EXPECT_EQ(offer("i5", {{"a"}}, "job", laptop), "a");
    EXPECT_EQ(offer("i6", {{"a"}}, "job", bob), "a");
    EXPECT_EQ(cancel("i3"), 200);
    EXPECT_EQ(offer("i7", {{"a"}}), "");
}

TEST_F(Backup, AwaitsWhatItsListNamesLast) {
    backup("i1", {{"a", 1}, {"b", 1}});
    EXPECT_EQ(offer("i2", {{"a", 1}, {"b", 2}, {"c", 1}}), "b,c");
    EXPECT_EQ(offer("i2", {{"a", 2}, {"b", 1}}), "a");
    run("i2", "a", "new", 2);
    EXPECT_EQ(end("i2"), 409);  // c is still awaited
    put("i2", "c", "c");
    EXPECT_EQ(end("i2"), 200);
    EXPECT_EQ(stored("i2", "b"), "b");
    // One that begins anew forgets what was named before.
    EXPECT_EQ(offer("i3", {{"b", 1}, {"gone", 1}}), "gone");
    EXPECT_EQ(offer("i3", {{"new", 1}}, "job", alice, true), "new");
    EXPECT_EQ(offer("i3", {{"more", 1}}), "more");
    run("i3", "new", "new");
    EXPECT_EQ(end("i3"), 409);  // more is awaited, gone no longer
    put("i3", "more", "more");
    EXPECT_EQ(end("i3"), 200);
    EXPECT_EQ(stored("i3", "b"), "none");
}

TEST_F(Backup, KeepsBlocksWhenInformationComesAgainWithTheSameSize) {
    const std::string bytes = pattern(blockBytes + 5);
    run("i1", "before", "before");
    putInfo("i1", "a", bytes.size());
    putBlock("i1", "a", 1, bytes.substr(0, blockBytes));
    EXPECT_EQ(putInfo("i1", "a", bytes.size()), 200);
    EXPECT_EQ(putBlock("i1", "a", 2, bytes.substr(blockBytes)), 200);
    EXPECT_EQ(stored("i1", "a"), bytes);
    // Blocks of another time must not become a part of what the file is now.
    EXPECT_EQ(putInfo("i1", "a", bytes.size(), 7), 200);
    EXPECT_EQ(stored("i1", "a"), "");
    EXPECT_EQ(putBlock("i1", "a", 2, bytes.substr(blockBytes)), 409);
    put("i1", "a", bytes, 7);
    EXPECT_EQ(stored("i1", "a"), bytes);
    EXPECT_EQ(putInfo("i1", "a", bytes.size() - 1), 200);
    EXPECT_EQ(stored("i1", "a"), "");
    EXPECT_EQ(putBlock("i1", "a", 2, bytes.substr(blockBytes + 1)), 409);
    put("i1", "after", "after");
    EXPECT_EQ(end("i1"), 409);
    put("i1", "a", bytes.substr(1));
    EXPECT_EQ(end("i1"), 200);
    EXPECT_EQ(stored("i1", "a"), bytes.substr(1));
    EXPECT_EQ(stored("i1", "before"), "before");
    EXPECT_EQ(stored("i1", "after"), "after");
}

TEST_F(Backup, DropsTheBlocksAboveOneThatIsReplaced) {
    const std::string bytes = pattern(blockBytes * 3);
    const std::string other = pattern(blockBytes, 2);
    run("i1", "a", bytes);
    EXPECT_EQ(putBlock("i1", "a", 2, other), 200);
    EXPECT_EQ(stored("i1", "a"), bytes.substr(0, blockBytes) + other);
    EXPECT_EQ(end("i1"), 409);
    EXPECT_EQ(putBlock("i1", "a", 3, bytes.substr(2 * blockBytes)), 200);
    const std::string before = everything();
    for (const int64_t k : {3, 1}) {  // as an answer that was lost, and a request that came late
        EXPECT_EQ(putBlock("i1", "a", k,
                           bytes.substr(static_cast<size_t>(k - 1) * blockBytes, blockBytes)),
                  200);
        EXPECT_EQ(everything(), before);
    }
    EXPECT_EQ(end("i1"), 200);
    EXPECT_EQ(stored("i1", "a"),
              bytes.substr(0, blockBytes) + other + bytes.substr(2 * blockBytes));
}

TEST_F(Backup, AnIdenticalBlockTakesThePlaceOfBytesThatAreGone) {
    const std::string bytes = pattern(2 * blockBytes);
    run("i1", "a", bytes);
    std::filesystem::resize_file(package(1), 5);
    EXPECT_EQ(putBlock("i1", "a", 1, bytes.substr(0, blockBytes)), 200);
    EXPECT_EQ(putBlock("i1", "a", 2, bytes.substr(blockBytes)), 200);
    EXPECT_EQ(stored("i1", "a"), bytes);
}

TEST_F(Backup, AFileThatIsCarriedOverCanBeSentNevertheless) {
    backup("i1", {{"a", 1}});
    EXPECT_EQ(offer("i2", {{"a", 1}}), "");
    start("i2");
    EXPECT_EQ(putBlock("i2", "a", 1, "b"), 409);  // would write into i1
    put("i2", "a", "b");
    EXPECT_EQ(end("i2"), 200);
    EXPECT_EQ(stored("i1", "a"), "a");
    EXPECT_EQ(stored("i2", "a"), "b");
}

TEST_F(Backup, RepeatedRequestsChangeNothing) {
    backup("i1", {{"a"}});
    addError("i1", "x");
    offer("i2", {{"b"}});
    start("i2");
    EXPECT_EQ(addError("i2", "b"), 200);
    EXPECT_EQ(end("i2"), 200);
    offer("i3", {{"b"}});
    cancel("i3");
    offer("i4", {{"a"}});
    start("i4");
    const std::string before = everything();
    EXPECT_EQ(start("i1"), 200);
    EXPECT_EQ(start("i4"), 200);
    EXPECT_EQ(end("i1"), 200);
    EXPECT_EQ(addError("i2", "b"), 200);
    EXPECT_EQ(cancel("i3"), 200);
    EXPECT_EQ(everything(), before);
}

TEST_F(Backup, TheEndNamesWhatIsIncompleteAsFarAsOneAnswerGoes) {
    struct Row {
        size_t files;
        size_t length;  // of each path
        size_t named;
    };
    for (const Row& row : {Row{1, 8, 1}, Row{1500, 8, 1000}, Row{10, size_t{50} << 10U, 3}}) {
        const std::string instance = "i" + std::to_string(row.files);
        std::vector<Offer> files;
        for (size_t i = 0; i < row.files; ++i) {
            std::string path = std::to_string(i) + " ";
            files.push_back({path.append(row.length - path.size(), 'x')});
        }
        offer(instance, files);
        start(instance);
        for (size_t left = row.files; left > 0; left -= std::min(left, row.named)) {
            const Answer refused = endJob(instance);
            ASSERT_EQ(refused.status, 409);
            json::array errors;
            const json::object answer = refused.json();
            for (const json::value& path : answer.at("incomplete").as_array()) {
                errors.push_back(json::object{{"path", path}, {"code", 5}, {"reason", ""}});
            }
            ASSERT_EQ(errors.size(), std::min(left, row.named));
            const json::object report{{"jobinstanceid", instance}, {"errors", errors}};
            ASSERT_EQ(ask(addErrorsPath, report).status, 200);
        }
        EXPECT_EQ(end(instance), 200);
    }
}

TEST_F(Backup, DataFolderIsServedByOneProcess) {
    EXPECT_THROW(StorageServer(options, [](const std::string&) {}), std::exception);
    EXPECT_EQ(start("i1"), 200);
}

}  // namespace

}  // namespace dorvo
