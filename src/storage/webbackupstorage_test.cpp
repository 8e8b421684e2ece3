#include "support/scripted_server.h"
// The sockets' header comes before the others.
#include "storage/webbackupstorage.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "base/md5.h"
#include "base/paths.h"
#include "base/text.h"
#include "http_util/http_connections.h"
#include "settings/cookiemanager.h"
#include "settings/options.h"
#include "storage/itemtemppath.h"
#include "storage/web_increment_check.h"
#include "storage/wire_time.h"
#include "support/log_capture.h"
#include "support/signal.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

constexpr char job[] = "j1";

// One request as the service saw it.
struct Seen {
    std::string endpoint;  // the file name of its path, without ".php"
    std::string head;
    std::string body;
};

// Plays the service: keeps every request; the answer is the test's, 200 unless it says otherwise.
class WebBackupStorageTest : public test::StoreTest {
protected:
    WebBackupStorageTest() {
        record_.reset(static_cast<int32_t>(JobState::running), true);
        record_.instanceId.fill(0x11);
        std::wstring directory;
        jobDirectory(job, directory);
        createDirectories(directory + L"\\tmp");
        document_ = toUtf8(directory + L"\\errors");
        failed_ = std::make_unique<FailedItems>(document_, record_);
        server_ = std::make_unique<test::ScriptedServer>(
            [this](test::ScriptedPeer& peer, int) { serve(peer); });
    }
    ~WebBackupStorageTest() override {
        ATL::CComSingleton<HTTP_Connections>::instance()->stop();
        server_.reset();
    }

    std::unique_ptr<WebBackupStorage> makeStorage(DWORD finishPatienceMs = INFINITE) {
        WebBackupStorage::Run run;
        run.finishPatienceMs = finishPatienceMs;
        run.jobId = job;
        run.jobName = "name";
        run.cookie = cookie_;
        run.host = "127.0.0.1";
        run.port = server_->port();
        run.compress = false;
        run.totals = {1, 2, 3};
        run.activity = &record_;
        run.failed = failed_.get();
        run.stop = stop_.handle();
        return std::make_unique<WebBackupStorage>(std::move(run));
    }
    // A source whose package has the wanted size: a multiple of 16 above 0.
    std::wstring makeSource(size_t packageSize) {
        const std::wstring path = dataPath(L"\\source");
        write(path, std::string(packageSize - 1, 'x'));
        return path;
    }
    static WIN32_FILE_ATTRIBUTE_DATA attributes(const std::wstring& path) {
        WIN32_FILE_ATTRIBUTE_DATA data{};
        GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data);
        return data;
    }
    bool backup(WebBackupStorage& storage, const std::wstring& path, uint32_t number = 1) {
        return storage.backup(path.c_str(), attributes(path), number, nullptr);
    }
    std::vector<std::string> endpoints() const {
        std::vector<std::string> names;
        for (const Seen& seen : seen_) {
            names.push_back(seen.endpoint);
        }
        return names;
    }
    // "3": the block's number, from the name of its file.
    static std::string blockOf(const Seen& seen) {
        const size_t begin = seen.body.find("filename=\"") + 10;
        return seen.body.substr(begin, seen.body.find(".jpg") - begin);
    }

    JobActivity record_{};
    std::string cookie_ = "DORVOSESSION=abc";
    test::Signal stop_;
    std::unique_ptr<FailedItems> failed_;
    std::string document_;
    std::vector<Seen> seen_;
    std::function<std::string(const Seen&)> status_ = [](const Seen&) { return "200 OK"; };
    std::unique_ptr<test::ScriptedServer> server_;

private:
    void serve(test::ScriptedPeer& peer) {
        for (std::string request = peer.request(); !request.empty(); request = peer.request()) {
            const size_t split = request.find("\r\n\r\n");
            Seen seen{{}, request.substr(0, split + 2), request.substr(split + 4)};
            const std::string line = seen.head.substr(0, seen.head.find(".php"));
            seen.endpoint = line.substr(line.rfind('/') + 1);
            seen_.push_back(seen);
            const std::string status = status_(seen);
            if (status.empty() || !peer.answer("{}", status)) {
                return;  // an empty status ends the connection without an answer
            }
        }
    }
};

using Names = std::vector<std::string>;

TEST_F(WebBackupStorageTest, AFileIsAnnouncedAndSentInBlocks) {
    const auto storage = makeStorage();
    ASSERT_TRUE(storage->start());
    const std::wstring path = makeSource(uploadBlockSize);
    ASSERT_TRUE(backup(*storage, path, 7));
    ASSERT_EQ(endpoints(), (Names{"StartJob", "uploadfile", "uploadblock"}));
    EXPECT_EQ(seen_[0].head.substr(0, 52),
              "POST /dorvo/WebServer/jobs/StartJob.php HTTP/1.1\r\nCo");
    EXPECT_NE(seen_[1].head.find("POST /dorvo/Storage%20Server/backupServer/uploadfile.php "),
              std::string::npos);
    for (const Seen& seen : seen_) {
        EXPECT_NE(seen.head.find("\r\nCookie: DORVOSESSION=abc\r\n"), std::string::npos);
    }
    json_spirit::Value info;
    json_spirit::read_or_throw(seen_[1].body, info);
    EXPECT_EQ(info.get_obj().at("totalblock").get_int(), 2);
    EXPECT_EQ(info.get_obj().at("totalsizeLow").get_int(), static_cast<int>(uploadBlockSize));
    EXPECT_EQ(info.get_obj().at("sourcename").get_str(), toUtf8(path));
    EXPECT_EQ(info.get_obj().at("jobinstanceid").get_str(), "11111111-1111-1111-1111-111111111111");

    EXPECT_EQ(blockOf(seen_[2]), "1");
    EXPECT_NE(seen_[2].head.find("Accept-Encoding: gip, deflate\r\n"), std::string::npos);
    const size_t data = seen_[2].body.find("binary\r\n\r\n") + 10;
    const std::string block = seen_[2].body.substr(data, uploadBlockSize);
    EXPECT_NE(seen_[2].body.find(Md5::of(std::as_bytes(std::span(block)))), std::string::npos);

    EXPECT_EQ(record_.acceptedBlocks, 1u);
    EXPECT_EQ(record_.itemNumber, 7u);
    EXPECT_EQ(record_.packageSize, uploadBlockSize);
    EXPECT_EQ(record_.fileOffset, uploadBlockSize);
    EXPECT_EQ(record_.transferred, uploadBlockSize);
    EXPECT_EQ(GetFileAttributesW(itemTempPath(itemTempFolder(job), 7).c_str()),
              INVALID_FILE_ATTRIBUTES);
}

TEST_F(WebBackupStorageTest, ADirectoryHasNoData) {
    const auto storage = makeStorage();
    ASSERT_TRUE(storage->start());
    const std::wstring folder = dataPath(L"\\job\\");
    ASSERT_TRUE(backup(*storage, folder));
    ASSERT_EQ(endpoints(), (Names{"StartJob", "uploadfile"}));
    json_spirit::Value info;
    json_spirit::read_or_throw(seen_[1].body, info);
    EXPECT_EQ(info.get_obj().at("type").get_str(), "folder");
    EXPECT_EQ(info.get_obj().at("totalblock").get_int(), 0);
    EXPECT_EQ(info.get_obj().at("sourcename").get_str(), toUtf8(dataPath(L"\\job")));
}

TEST_F(WebBackupStorageTest, AResumedFileGoesOnBehindItsAcceptedBlocksWhenItIsTheSame) {
    const uint64_t size = 3 * uploadBlockSize + 16;
    const std::wstring path = makeSource(size);
    const WIN32_FILE_ATTRIBUTE_DATA listed = attributes(path);
    struct Row {
        const char* name;
        uint32_t item;
        uint64_t packageSize;
        uint32_t accepted;
        bool touched;
        Names blocks;
    };
    const Row rows[] = {
        {"goes on", 1, size, 2, false, {"3", "4"}},
        {"all there", 1, size, 4, false, {}},
        {"nothing accepted", 1, size, 0, false, {"1", "2", "3", "4"}},
        {"another item's blocks", 9, size, 2, false, {"1", "2", "3", "4"}},
        {"another package", 1, size + 16, 2, false, {"1", "2", "3", "4"}},
        {"more blocks than there are", 1, size, 9, false, {"1", "2", "3", "4"}},
        {"changed since it was listed", 1, size, 2, true, {"1", "2", "3", "4"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        seen_.clear();
        record_.itemNumber = row.item;
        record_.packageSize = row.packageSize;
        record_.acceptedBlocks = row.accepted;
        WIN32_FILE_ATTRIBUTE_DATA data = listed;
        data.ftLastWriteTime.dwLowDateTime ^= row.touched ? 1u : 0u;
        const auto storage = makeStorage();
        ASSERT_TRUE(storage->start());
        EXPECT_TRUE(storage->backup(path.c_str(), data, 1, nullptr));
        Names blocks;
        for (const Seen& seen : seen_) {
            if (seen.endpoint == "uploadblock") {
                blocks.push_back(blockOf(seen));
            }
        }
        EXPECT_EQ(blocks, row.blocks);
        EXPECT_EQ(record_.acceptedBlocks, 4u);
        EXPECT_EQ(record_.fileOffset, size);
    }
}

TEST_F(WebBackupStorageTest, AStatusBecomesTheErrorAndLeavesTheOffset) {
    const std::wstring path = makeSource(2 * uploadBlockSize);
    status_ = [](const Seen& seen) {
        return seen.endpoint == "uploadblock" && blockOf(seen) == "2" ? "404 Not Found" : "200 OK";
    };
    const auto storage = makeStorage();
    ASSERT_TRUE(storage->start());
    test::LogCapture capture;
    EXPECT_FALSE(backup(*storage, path));
    EXPECT_EQ(GetLastError(), 0x20010194u);
    EXPECT_EQ(record_.acceptedBlocks, 1u);
    EXPECT_EQ(record_.fileOffset, uploadBlockSize);
    EXPECT_TRUE(capture.has(LogLevel::error, "Failed to upload file data {" + toUtf8(path) +
                                                 "}, status-code = 404, Not Found.\n"));
    EXPECT_TRUE(capture.has(
        LogLevel::debug, "File {%} is ecrypted/compressed, start to upload file information.\n"));
    EXPECT_TRUE(capture.has(LogLevel::debug, "Uploading data {131072} to {262144} of file {%}.\n"));
}

TEST_F(WebBackupStorageTest, AServerThatStallsAtTheEndHoldsUpAStopForItsPatienceOnly) {
    test::Signal answer;
    status_ = [&](const Seen& seen) {
        if (seen.endpoint == "endjob") {
            stop_.set();
            answer.wait();
        }
        return "200 OK";
    };
    const auto storage = makeStorage(0);
    ASSERT_TRUE(storage->start());
    EXPECT_FALSE(storage->end());
    EXPECT_EQ(GetLastError(), DWORD{ERROR_CANCELLED});
    answer.set();
}

TEST_F(WebBackupStorageTest, AStopMakesEveryFailureACancellation) {
    const std::wstring path = makeSource(2 * uploadBlockSize);
    status_ = [this](const Seen& seen) {
        if (seen.endpoint == "uploadblock") {
            stop_.set();
            return "503 Service Unavailable";
        }
        return "200 OK";
    };
    const auto storage = makeStorage();
    ASSERT_TRUE(storage->start());
    EXPECT_FALSE(backup(*storage, path));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_CANCELLED));
    EXPECT_EQ(record_.acceptedBlocks, 0u);

    // Ending the run does not heed the signal.
    seen_.clear();
    EXPECT_TRUE(storage->cancel());
    EXPECT_EQ(endpoints(), Names{"CancelJob"});
    EXPECT_EQ(seen_[0].body, R"({"id":"11111111-1111-1111-1111-111111111111"})");
}

TEST_F(WebBackupStorageTest, RefusesToStart) {
    struct Row {
        const char* name;
        bool activity;
        const char* host;
        bool cookie;
        DWORD error;
        const char* message;
    };
    const Row rows[] = {
        {"no record", false, "127.0.0.1", true, 87,
         "Failed to start job {j1, name}, invalid job activity.\n"},
        {"no cookie", true, "127.0.0.1", false, 0x20010191, "The cookie is empty.\n"},
        {"no server", true, "", true, 87, "Invalid host name(=null).\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        WebBackupStorage::Run run;
        run.jobId = job;
        run.jobName = "name";
        run.cookie = row.cookie ? "c" : "";
        run.host = row.host;
        run.port = server_->port();
        run.activity = row.activity ? &record_ : nullptr;
        WebBackupStorage storage(std::move(run));
        test::LogCapture capture;
        SetLastError(0);
        EXPECT_FALSE(storage.start());
        EXPECT_EQ(GetLastError(), row.error);
        EXPECT_TRUE(capture.has(LogLevel::error, row.message));
        EXPECT_TRUE(seen_.empty());
    }
    record_.instanceId.fill(0);
    const auto storage = makeStorage();
    EXPECT_FALSE(storage->start());
    EXPECT_FALSE(storage->cancel());
    EXPECT_TRUE(seen_.empty());
}

TEST_F(WebBackupStorageTest, AStartWithoutAnAnswerIsTriedTwice) {
    status_ = [](const Seen&) { return ""; };
    const auto storage = makeStorage();
    test::LogCapture capture;
    EXPECT_FALSE(storage->start());
    EXPECT_EQ(endpoints(), (Names{"StartJob", "StartJob"}));
    EXPECT_TRUE(capture.has(LogLevel::information, "name less command: Failed, retrying...\n"));
}

TEST_F(WebBackupStorageTest, EndsWithTheFailedItems) {
    const auto storage = makeStorage();
    ASSERT_TRUE(storage->start());
    ASSERT_TRUE(storage->recordError(L"C:\\x", 0x20010193, "Forbidden"));
    // A run that was cut off meets its item again.
    ASSERT_TRUE(storage->recordError(L"C:\\x", 0x20010193, "Forbidden"));
    EXPECT_EQ(record_.failedItems, 1u);
    EXPECT_EQ(FailedItems(document_, record_).list().size(), 1u);
    ASSERT_TRUE(storage->end());
    ASSERT_EQ(endpoints(), (Names{"StartJob", "AddErrorFiles", "endjob"}));
    EXPECT_EQ(seen_[1].body,
              R"({"errors":[{"code":536936851,"path":"C:\\x","reason":"Forbidden"}],)"
              R"("jobinstanceid":"11111111-1111-1111-1111-111111111111"})");
}

TEST_F(WebBackupStorageTest, AnEndWhoseErrorsAreRefusedDoesNotEnd) {
    status_ = [](const Seen& seen) {
        return seen.endpoint == "AddErrorFiles" ? "503 Service Unavailable" : "200 OK";
    };
    const auto storage = makeStorage();
    ASSERT_TRUE(storage->start());
    ASSERT_TRUE(storage->recordError(L"C:\\x", 5, ""));
    EXPECT_FALSE(storage->end());
    EXPECT_EQ(GetLastError(), 0x200101F7u);
    EXPECT_EQ(endpoints().back(), "AddErrorFiles");
}

TEST_F(WebBackupStorageTest, AMissingSourceFailsBeforeAnythingIsSent) {
    const auto storage = makeStorage();
    ASSERT_TRUE(storage->start());
    const std::wstring path = makeSource(16);
    const WIN32_FILE_ATTRIBUTE_DATA data = attributes(path);
    DeleteFileW(path.c_str());
    EXPECT_FALSE(storage->backup(path.c_str(), data, 1, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(endpoints(), Names{"StartJob"});
}

TEST_F(WebBackupStorageTest, OneCheckIsOneListToTheService) {
    ATL::CComSingleton<OptionsImpl, ATL::CComAutoCriticalSection>::instance()->setServerInfo(
        "s", "127.0.0.1", server_->port());
    ATL::CComSingleton<CookieManagerImpl, ATL::CComAutoCriticalSection>::instance()->saveCookie(
        "alice", "c");
    Web_Increment_Check check({job, "alice", "i", true, nullptr});
    const std::vector<IncrementCheck::File> files = {{L"C:\\x", 1}};
    std::vector<bool> send;
    status_ = [this](const Seen&) { return seen_.size() == 1 ? "503 Busy" : "200 OK"; };
    for (const char* first : {"true", "true", "false"}) {
        EXPECT_FALSE(check.check(files, send));  // {} is no answer
        EXPECT_NE(seen_.back().body.find(std::string("\"first\":") + first), std::string::npos);
    }
}

TEST(WireTime, IsWrittenWithTwoDigits) {
    EXPECT_EQ(wire_time(0), "");
    EXPECT_EQ(wire_time(129'436'887'670'000'000), "2011-03-04 05:06:07");
}

TEST(IncrementCheck, MarksWhatTheAnswerNames) {
    struct Row {
        Names named;
        bool good;
        std::vector<bool> marks;
    };
    const Row rows[] = {
        {{}, true, {false, false, false, false}},
        {{"a", "c"}, true, {true, false, false, true}},
        {{"a", "b", "b", "c"}, true, {true, true, true, true}},
        {{"c", "a"}, false, {}},
        {{"d"}, false, {}},
    };
    for (const Row& row : rows) {
        std::vector<bool> marks;
        EXPECT_EQ(markNamed({"a", "b", "b", "c"}, row.named, marks), row.good);
        if (row.good) {
            EXPECT_EQ(marks, row.marks);
        }
    }
}

}  // namespace
}  // namespace dorvo
