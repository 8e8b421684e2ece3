#include "storage/scripted_restore.h"
// The sockets' header comes before the others.

#include "support/log_capture.h"

namespace dorvo::test {
namespace {

class WebRestoreStorageTest : public ScriptedRestore {};

TEST_F(WebRestoreStorageTest, DirectoriesComeBackWithTheirAttributes) {
    attributes_ = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_HIDDEN;
    const auto storage = makeStorage();
    const std::wstring target = dataPath(L"\\out\\dir\\sub");
    LogCapture capture;
    for (const bool existed : {false, true}) {
        ASSERT_TRUE(storage->restoreDirectory(L"C:\\data\\sub\\", target.c_str()));
        EXPECT_EQ(member(service_.last(), "filename"), "sub");
        EXPECT_EQ(capture.has("Directory {" + toUtf8(target) + "} exists.\n"), existed);
    }
    WIN32_FILE_ATTRIBUTE_DATA data{};
    ASSERT_NE(GetFileAttributesExW(target.c_str(), GetFileExInfoStandard, &data), 0);
    EXPECT_EQ(data.dwFileAttributes, attributes_);
    EXPECT_EQ(data.ftLastWriteTime.dwHighDateTime, 29200000u);

    service_.forget();
    EXPECT_TRUE(storage->restoreDirectory(L"C:\\", dataPath(L"\\out\\C").c_str()));
    EXPECT_TRUE(service_.seen().empty());  // a drive cannot be asked for

    attributes_ = FILE_ATTRIBUTE_ARCHIVE;
    EXPECT_FALSE(storage->restoreDirectory(L"C:\\data\\sub", target.c_str()));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_DATA});
    EXPECT_TRUE(
        capture.has(LogLevel::error, "Download file information failed, file {C:\\data\\sub}.\n"));
    write(target_, "a file");
    EXPECT_FALSE(storage->restoreDirectory(L"C:\\data\\a.txt", target_.c_str()));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_DIRECTORY});

    attributes_ = FILE_ATTRIBUTE_DIRECTORY;
    reply_ = [this](const Seen&) {
        stop_.set();
        return Answer{"503 Busy"};
    };
    EXPECT_FALSE(storage->restoreDirectory(L"C:\\data\\x", dataPath(L"\\out\\x").c_str()));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_CANCELLED});
    EXPECT_FALSE(storage->restoreDirectory(L"C:\\data\\y", dataPath(L"\\out\\y").c_str()));
    EXPECT_TRUE(capture.has(LogLevel::information,
                            "Restoring directory {C:\\data\\x} is cancelled when download file "
                            "information.\n"));
    EXPECT_TRUE(
        capture.has(LogLevel::information, "Restoring directory {C:\\data\\y} is cancelled.\n"));
    EXPECT_FALSE(exists(dataPath(L"\\out\\y")));
}

TEST_F(WebRestoreStorageTest, RefusesToStart) {
    using Run = WebRestoreStorage::Run;
    struct Row {
        void (*spoil)(Run&);
        std::optional<Answer> answer;
        DWORD error;
        const char* message;  // behind "Failed to start restore job {j1, name}, "
    };
    const auto asIs = [](Run&) {};
    const Row rows[] = {
        {[](Run& run) { run.port = 0; }, Answer{}, 87, "invalid host name or port.\n"},
        {[](Run& run) { run.activity = nullptr; }, Answer{}, 87, "invalid job activity.\n"},
        {[](Run& run) { run.cookie.clear(); }, Answer{}, 0x20010191,
         "can't find the cookie for user {nobody}.\n"},
        {[](Run& run) { run.jobInstanceId = "x"; }, Answer{}, 87,
         "can't convert the instance GUID to string.\n"},
        {asIs, Answer{"409 Conflict"}, 0x20010199, "status-code = 409, Conflict.\n"},
        {asIs, Answer{}, ERROR_INVALID_DATA, nullptr},
        {[](Run& run) { run.jobDefinitionId.clear(); }, Answer{}, 87, nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.error);
        reply_ = [&](const Seen&) { return row.answer; };
        Run run = makeRun();
        row.spoil(run);
        WebRestoreStorage storage(std::move(run));
        LogCapture capture;
        EXPECT_FALSE(storage.start());
        EXPECT_EQ(GetLastError(), row.error);
        if (row.message != nullptr) {
            EXPECT_TRUE(
                capture.has(LogLevel::error,
                            std::string("Failed to start restore job {j1, name}, ") + row.message));
        }
    }
    EXPECT_EQ(service_.endpoints(), (Names{"StartRestoreJob", "StartRestoreJob"}));
}

TEST_F(WebRestoreStorageTest, EndsWithErrorsAndHistoryOfTheRestore) {
    const json_spirit::Object history = {{"instanceId", "mine"}, {"state", "Completed"}};
    ASSERT_TRUE(failed_->add(L"C:\\x", 5, "why"));
    WebRestoreStorage storage(makeRun());  // not started: a paused run that is cancelled
    stop_.set();
    ASSERT_TRUE(storage.end(history));
    ASSERT_EQ(service_.endpoints(),
              (Names{"StartRestoreJob", "AddErrorFiles", "RestoreJobHistory"}));
    EXPECT_EQ(service_.seen()[1].body,
              R"({"errors":[{"code":5,"path":"C:\\x","reason":"why"}],"jobinstanceid":"r1"})");
    EXPECT_EQ(service_.seen()[2].body, R"({"instanceId":"r1","state":"Completed"})");

    struct Row {
        const char* refused;
        const char* message;
    };
    const Row rows[] = {
        {"AddErrorFiles",
         "Submit history errors failed, job {j1, name}, status-code = 404, Not Found.\n"},
        {"RestoreJobHistory",
         "Submit history failed, job {j1, name}, error-code = 404, Not Found.\n"},
    };
    for (const Row& row : rows) {
        reply_ = [&](const Seen& seen) {
            return seen.endpoint == row.refused ? Answer{"404 Not Found"} : reply(seen);
        };
        LogCapture capture;
        EXPECT_FALSE(storage.end(history));
        EXPECT_EQ(GetLastError(), 0x20010194u);
        EXPECT_EQ(service_.last().endpoint, row.refused);
        EXPECT_TRUE(capture.has(LogLevel::error, row.message));
    }
    service_.forget();
    LogCapture capture;
    EXPECT_FALSE(storage.end({}));
    EXPECT_TRUE(capture.has(LogLevel::error, "Invalid history information.\n"));
    WebRestoreStorage::Run run = makeRun();
    run.host.clear();
    WebRestoreStorage nowhere(std::move(run));
    EXPECT_FALSE(nowhere.end(history));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_TRUE(
        capture.has(LogLevel::error, "Failed to submit job historyinvalid host name or port.\n"));
}

}  // namespace
}  // namespace dorvo::test
