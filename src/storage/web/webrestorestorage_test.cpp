#include "storage/web/scripted_restore.h"
// The sockets' header comes before the others.

#include "storage/web/webbackend.h"
#include "support/fails_with.h"
#include "support/log_capture.h"

namespace dorvo::test {
namespace {

class WebRestoreStorageTest : public ScriptedRestore {};

TEST_F(WebRestoreStorageTest, DirectoriesComeBackWithTheirAttributes) {
    attributes_ = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_HIDDEN;
    const auto storage = makeStorage();
    const std::wstring target = dataPath(L"\\out\\dir\\sub");
    LogCapture quiet;
    for (int again = 0; again < 2; ++again) {
        ASSERT_TRUE(storage->restoreDirectory(L"C:\\data\\sub\\", target.c_str()));
        EXPECT_EQ(member(service_.last(), "filename"), "sub");
    }
    const WIN32_FILE_ATTRIBUTE_DATA data = dataOf(target);
    EXPECT_EQ(data.dwFileAttributes, attributes_);
    EXPECT_EQ(data.ftLastWriteTime.dwHighDateTime, 29200000u);

    service_.forget();
    EXPECT_TRUE(storage->restoreDirectory(L"C:\\", dataPath(L"\\out\\C").c_str()));
    EXPECT_TRUE(service_.seen().empty());  // a drive cannot be asked for

    attributes_ = FILE_ATTRIBUTE_ARCHIVE;
    EXPECT_FAILS(ERROR_INVALID_DATA, storage->restoreDirectory(L"C:\\data\\sub", target.c_str()));
    write(target_, "a file");
    EXPECT_FAILS(ERROR_DIRECTORY, storage->restoreDirectory(L"C:\\data\\a.txt", target_.c_str()));

    attributes_ = FILE_ATTRIBUTE_DIRECTORY;
    reply_ = [this](const Seen&) {
        stop_.set();
        return Answer{"503 Busy"};
    };
    EXPECT_FAILS(ERROR_CANCELLED,
                 storage->restoreDirectory(L"C:\\data\\x", dataPath(L"\\out\\x").c_str()));
    EXPECT_FALSE(storage->restoreDirectory(L"C:\\data\\y", dataPath(L"\\out\\y").c_str()));
    EXPECT_FALSE(exists(dataPath(L"\\out\\y")));
}

TEST_F(WebRestoreStorageTest, RefusesToStart) {
    struct Row {
        void (*spoil)(WebPlace&, StoredRun&);
        Answer answer;
        DWORD error;
    };
    const auto asIs = [](WebPlace&, StoredRun&) {};
    const Row rows[] = {
        {[](WebPlace& place, StoredRun&) { place.port = 0; }, {}, 87},
        {[](WebPlace& place, StoredRun&) { place.cookie.clear(); }, {}, 0x20010191},
        {[](WebPlace&, StoredRun& from) { from.jobInstanceId = "x"; }, {}, 87},
        {[](WebPlace&, StoredRun& from) { from.jobDefinitionId.clear(); }, {}, 87},
        {asIs, {"409 Conflict", R"({"error":"not now"})"}, 0x20010199},
        {asIs, {}, ERROR_INVALID_DATA},
    };
    const LogCapture log;
    for (const Row& row : rows) {
        reply_ = [&](const Seen&) { return row.answer; };
        WebPlace at = place();
        RestoreTask task = makeTask();
        row.spoil(at, task.from);
        WebRestoreStorage storage(std::move(at), std::move(task));
        EXPECT_FAILS(row.error, storage.start());
    }
    EXPECT_EQ(service_.endpoints(), (Names{"StartRestoreJob", "StartRestoreJob"}));
    EXPECT_TRUE(log.begins("Failed to start restore job {j1, name}, can't find the cookie for"));
    EXPECT_TRUE(log.begins("The service says {not now}."));
    EXPECT_FAILS(87, WebBackend("alice").restore({}) != nullptr);
    EXPECT_TRUE(log.begins("Failed to start restore job {, }, invalid job activity."));
}

TEST_F(WebRestoreStorageTest, EndsWithErrorsAndHistoryOfTheRestore) {
    const json_spirit::Object history = {{"instanceId", "mine"}, {"state", "Completed"}};
    ASSERT_TRUE(failed_->add(L"C:\\x", 5, "why"));
    WebRestoreStorage storage(place(), makeTask());  // not started: a paused run that is cancelled
    stop_.set();
    ASSERT_TRUE(storage.end(history));
    ASSERT_EQ(service_.endpoints(),
              (Names{"StartRestoreJob", "AddErrorFiles", "RestoreJobHistory"}));
    EXPECT_EQ(service_.seen()[1].body,
              R"({"errors":[{"code":5,"path":"C:\\x","reason":"why"}],"jobinstanceid":"r1"})");
    EXPECT_EQ(service_.seen()[2].body, R"({"instanceId":"r1","state":"Completed"})");

    LogCapture quiet;
    for (const std::string refused : {"AddErrorFiles", "RestoreJobHistory"}) {
        reply_ = [&](const Seen& seen) {
            return seen.endpoint == refused ? Answer{"404 Not Found"} : reply(seen);
        };
        EXPECT_FAILS(0x20010194u, storage.end(history));
        EXPECT_EQ(service_.last().endpoint, refused);
    }
    EXPECT_FALSE(storage.end({}));
    WebRestoreStorage nowhere({}, makeTask());
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, nowhere.end(history));
}

}  // namespace
}  // namespace dorvo::test
