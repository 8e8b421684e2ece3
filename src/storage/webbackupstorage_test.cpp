#include "support/scripted_service.h"
// The sockets' header comes before the others.
#include "storage/webbackupstorage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>

#include "base/handle.h"
#include "base/md5.h"
#include "base/paths.h"
#include "base/text.h"
#include "settings/cookiemanager.h"
#include "settings/options.h"
#include "storage/itemtemppath.h"
#include "storage/web_increment_check.h"
#include "storage/wire_time.h"
#include "support/fails_with.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/signal.h"
#include "support/store_test.h"
#include "support/store_watch.h"

namespace dorvo {
namespace {

using Names = std::vector<std::string>;
using test::Answer;
using test::Seen;

constexpr char job[] = "j1";
constexpr char instance[] = "11111111-1111-1111-1111-111111111111";

json_spirit::Object bodyOf(const Seen& seen) {
    json_spirit::Value body;
    json_spirit::read_or_throw(seen.body, body);
    return body.get_obj();
}

// "3": the block's number, from the name of its file.
std::string blockOf(const Seen& seen) {
    const size_t begin = seen.body.find("filename=\"") + 10;
    return seen.body.substr(begin, seen.body.find(".jpg") - begin);
}

class WebBackupStorageTest : public test::StoreTest {
protected:
    WebBackupStorageTest()
        : service_([this](const Seen& seen) {
              return reply_ ? reply_(seen) : Answer{status_ ? status_(seen) : "200 OK"};
          }) {
        record_.reset(static_cast<int32_t>(JobState::running), true);
        record_.instanceId.fill(0x11);
        std::wstring directory;
        jobDirectory(job, directory);
        createDirectories(directory + L"\\tmp");
        failed_ = std::make_unique<FailedItems>(toUtf8(directory + L"\\errors"), record_);
    }

    WebBackupStorage::Run makeRun() {
        WebBackupStorage::Run run;
        run.finishPatienceMs = INFINITE;
        run.jobId = job;
        run.jobName = "name";
        run.cookie = "DORVOSESSION=abc";
        run.host = "127.0.0.1";
        run.port = service_.port();
        run.compress = false;
        run.totals = {1, 2, 3};
        run.activity = &record_;
        run.failed = failed_.get();
        run.stop = stop_.handle();
        return run;
    }
    // A started one.
    std::unique_ptr<WebBackupStorage> makeStorage(DWORD finishPatienceMs = INFINITE) {
        WebBackupStorage::Run run = makeRun();
        run.finishPatienceMs = finishPatienceMs;
        auto storage = std::make_unique<WebBackupStorage>(std::move(run));
        EXPECT_TRUE(storage->start());
        return storage;
    }
    // A source whose package has the wanted size: a multiple of 16 above 0.
    std::wstring makeSource(size_t packageSize) {
        std::wstring path = dataPath(L"\\source");
        write(path, std::string(packageSize - 1, 'x'));
        return path;
    }
    bool backup(WebBackupStorage& storage, const std::wstring& path, uint32_t number = 1) {
        return storage.backup(path.c_str(), test::dataOf(path), number, nullptr);
    }

    // The service takes so many blocks of the file and then no more.
    void sendInPart(const std::wstring& path, uint32_t count) {
        record_.itemNumber = 0;
        status_ = [&](const Seen& seen) {
            const bool more = seen.endpoint == "uploadblock" && std::stoul(blockOf(seen)) > count;
            return more ? "503 Busy" : "200 OK";
        };
        const test::LogCapture quiet;
        EXPECT_FALSE(backup(*makeStorage(), path));
        EXPECT_EQ(record_.acceptedBlocks, count);
        status_ = nullptr;
    }
    Names blocks() const {
        Names numbers;
        for (const Seen& seen : service_.seen()) {
            if (seen.endpoint == "uploadblock") {
                numbers.push_back(blockOf(seen));
            }
        }
        return numbers;
    }
    // Where it stands what was accepted.
    static std::wstring known() {
        std::wstring directory;
        jobDirectory(job, directory);
        return directory + L"\\act\\accepted";
    }

    JobActivity record_{};
    test::Signal stop_;
    std::unique_ptr<FailedItems> failed_;
    std::function<const char*(const Seen&)> status_;
    std::function<Answer(const Seen&)> reply_;  // where more than a status is told
    test::ScriptedService service_;
};

TEST_F(WebBackupStorageTest, AFileIsAnnouncedAndSentInBlocks) {
    const auto storage = makeStorage();
    const std::wstring path = makeSource(uploadBlockSize);
    ASSERT_TRUE(backup(*storage, path, 7));
    ASSERT_EQ(service_.endpoints(), (Names{"StartJob", "uploadfile", "uploadblock"}));
    const std::vector<Seen>& seen = service_.seen();
    const char* const paths[] = {"/dorvo/WebServer/jobs/StartJob.php",
                                 "/dorvo/Storage%20Server/backupServer/uploadfile.php",
                                 "/dorvo/Storage%20Server/backupServer/uploadblock.php"};
    for (size_t i = 0; i < std::size(paths); ++i) {
        EXPECT_EQ(seen[i].head.find("POST " + std::string(paths[i]) + " HTTP/1.1\r\n"), 0u);
        EXPECT_NE(seen[i].head.find("\r\nCookie: DORVOSESSION=abc\r\n"), std::string::npos);
    }
    EXPECT_EQ(bodyOf(seen[1]).at("totalblock").get_int(), 2);

    EXPECT_EQ(blockOf(seen[2]), "1");
    EXPECT_NE(seen[2].head.find("Accept-Encoding: gip, deflate\r\n"), std::string::npos);
    const size_t data = seen[2].body.find("binary\r\n\r\n") + 10;
    const std::string block = seen[2].body.substr(data, uploadBlockSize);
    EXPECT_NE(seen[2].body.find(Md5::of(std::as_bytes(std::span(block)))), std::string::npos);

    EXPECT_EQ(record_.acceptedBlocks, 1u);
    EXPECT_EQ(record_.itemNumber, 7u);
    EXPECT_EQ(record_.packageSize, uploadBlockSize);
    EXPECT_EQ(record_.fileOffset, uploadBlockSize);
    EXPECT_EQ(record_.transferred, uploadBlockSize);
    EXPECT_FALSE(test::exists(itemTempPath(itemTempFolder(job), 7)));

    ASSERT_TRUE(backup(*storage, dataPath(L"\\job\\")));
    ASSERT_EQ(service_.last().endpoint, "uploadfile");  // a directory has no data
    const json_spirit::Object folder = bodyOf(service_.last());
    EXPECT_EQ(folder.at("type").get_str(), "folder");
    EXPECT_EQ(folder.at("sourcename").get_str(), toUtf8(dataPath(L"\\job")));
}

// Two of four blocks are accepted; then something happens before the run goes on.
TEST_F(WebBackupStorageTest, AResumedFileGoesOnBehindItsAcceptedBlocksWhenItBeginsWithThem) {
    const size_t size = size_t{3} * uploadBlockSize + 16;
    const Names all = {"1", "2", "3", "4"};
    const Names left = {"3", "4"};
    const auto put = [](const std::wstring& path, size_t at) {
        const FileHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                          FILE_ATTRIBUTE_NORMAL, nullptr));
        const FILETIME written = test::dataOf(path).ftLastWriteTime;
        OVERLAPPED place{};
        place.Offset = static_cast<DWORD>(at);
        DWORD length = 0;
        WriteFile(file.get(), "#", 1, &length, &place);
        SetFileTime(file.get(), nullptr, nullptr, &written);
    };
    using Change = std::function<void(const std::wstring& source, WIN32_FILE_ATTRIBUTE_DATA& data)>;
    using Data = WIN32_FILE_ATTRIBUTE_DATA;
    using Source = const std::wstring&;
    struct Row {
        const char* name;
        Change change;
        Names blocks;
    };
    const Row rows[] = {
        {"nothing", [](Source, Data&) {}, left},
        {"another content behind them",
         [&](Source path, Data&) { put(path, size_t{2} * uploadBlockSize); }, left},
        {"another content of the same time and size",
         [&](Source path, Data&) { put(path, size_t{2} * uploadBlockSize - 17); }, all},
        {"another time", [](Source, Data& data) { data.ftLastWriteTime.dwLowDateTime ^= 1; }, all},
        {"on record of another item", [&](Source, Data&) { record_.itemNumber = 9; }, all},
        {"on record of another package", [&](Source, Data&) { record_.packageSize += 16; }, all},
        {"more on record", [&](Source, Data&) { record_.acceptedBlocks = 3; }, all},
        {"less on record", [&](Source, Data&) { record_.acceptedBlocks = 1; }, {"2", "3", "4"}},
        {"another run", [&](Source, Data&) { record_.instanceId.fill(0x22); }, all},
        {"a record of an older version", [&](Source, Data&) { DeleteFileW(known().c_str()); }, all},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::wstring path = makeSource(size);
        sendInPart(path, 2);
        WIN32_FILE_ATTRIBUTE_DATA data = test::dataOf(path);
        row.change(path, data);
        const auto storage = makeStorage();
        service_.forget();
        EXPECT_TRUE(storage->backup(path.c_str(), data, 1, nullptr));
        EXPECT_EQ(blocks(), row.blocks);
        EXPECT_EQ(record_.acceptedBlocks, 4u);
        EXPECT_EQ(record_.fileOffset, size);
        // What was not sent now counts on as well.
        record_.acceptedBlocks = 3;
        service_.forget();
        EXPECT_TRUE(backup(*makeStorage(), path));
        EXPECT_EQ(blocks(), Names{"4"});
    }
}

// Two of four blocks are accepted; then a power cut takes of them what the service had not synced.
TEST_F(WebBackupStorageTest, AResumedFileGoesBackToWhatTheServiceStillHolds) {
    const size_t size = size_t{3} * uploadBlockSize + 16;
    struct Row {
        const char* answer;
        Names blocks;
    };
    const Row rows[] = {
        {R"({"blocks":0})", {"1", "2", "3", "4"}},
        {R"({"blocks":1})", {"2", "3", "4"}},
        {R"({"blocks":2})", {"3", "4"}},
        {R"({"blocks":4})", {"3", "4"}},
        {R"({"blocks":-1})", {"3", "4"}},
        {R"({"blocks":"1"})", {"3", "4"}},
        {"{}", {"3", "4"}},
        {"[]", {"3", "4"}},
        {"<html>", {"3", "4"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.answer);
        const std::wstring path = makeSource(size);
        sendInPart(path, 2);
        reply_ = [&](const Seen& seen) {
            return seen.endpoint == "uploadfile" ? Answer{"200 OK", row.answer} : Answer{"200 OK"};
        };
        service_.forget();
        const test::LogCapture quiet;
        EXPECT_TRUE(backup(*makeStorage(), path));
        EXPECT_EQ(blocks(), row.blocks);
        EXPECT_EQ(record_.acceptedBlocks, 4u);
        EXPECT_EQ(record_.fileOffset, size);
        // What is on record of it is right, too.
        reply_ = nullptr;
        record_.acceptedBlocks = 3;
        service_.forget();
        EXPECT_TRUE(backup(*makeStorage(), path));
        EXPECT_EQ(blocks(), Names{"4"});
    }
}

// The content comes back as it was, and with it the record, whose pages a power cut has undone. The
// service has a block of the content between.
TEST_F(WebBackupStorageTest, BlocksOfAContentThatWasGivenUpAreNeverTakenForAcceptedAgain) {
    const size_t size = size_t{3} * uploadBlockSize + 16;
    const std::wstring path = makeSource(size);
    const WIN32_FILE_ATTRIBUTE_DATA data = test::dataOf(path);
    sendInPart(path, 2);
    const JobActivity before = record_;
    write(path, std::string(size - 1, 'y'));
    status_ = [](const Seen& seen) {
        return seen.endpoint == "uploadblock" ? "503 Busy" : "200 OK";
    };
    EXPECT_FALSE(makeStorage()->backup(path.c_str(), data, 1, nullptr));
    status_ = nullptr;
    makeSource(size);
    record_ = before;
    service_.forget();
    EXPECT_TRUE(makeStorage()->backup(path.c_str(), test::dataOf(path), 1, nullptr));
    EXPECT_EQ(blocks(), (Names{"1", "2", "3", "4"}));
}

TEST_F(WebBackupStorageTest, AStopWhileTheAcceptedBlocksAreComparedKeepsThem) {
    const std::wstring path = makeSource(size_t{3} * uploadBlockSize + 16);
    sendInPart(path, 2);
    {
        const auto storage = makeStorage();
        const test::LogCapture log;
        stop_.set();
        EXPECT_FAILS(ERROR_CANCELLED, backup(*storage, path));
        stop_.reset();
        EXPECT_TRUE(log.begins("File {" + toUtf8(path) +
                               "} backing up is cancelled when encrypt/compress at offset {"));
    }
    EXPECT_EQ(record_.acceptedBlocks, 2u);
    service_.forget();
    EXPECT_TRUE(backup(*makeStorage(), path));
    EXPECT_EQ(blocks(), (Names{"3", "4"}));
}

// What cannot be written down is not counted, so that it is not taken for something older.
TEST_F(WebBackupStorageTest, BlocksThatCannotBeWrittenDownAreSentAllTheSame) {
    createDirectories(known());
    const test::LogCapture quiet;
    EXPECT_TRUE(backup(*makeStorage(), makeSource(size_t{2} * uploadBlockSize)));
    EXPECT_EQ(blocks(), (Names{"1", "2"}));
    EXPECT_EQ(record_.acceptedBlocks, 0u);
}

TEST_F(WebBackupStorageTest, WhatTheServiceLacksAtTheEndBecomesFailedItems) {
    struct Row {
        const char* name;
        std::vector<std::string> refusals;  // to one end after the other, the last for ever
        DWORD error;
        Names failed;
        size_t ends;
    };
    const std::string a = R"({"error":"","incomplete":["C:\\a"]})";
    const std::string more = R"({"incomplete":["C:\\a","C:\\b\u00e4",7,""]})";
    std::vector<std::string> forEver;
    Names named;
    for (int i = 0; i < 150; ++i) {
        forEver.push_back(R"({"incomplete":["C:\\a)" + std::to_string(i) + "\"]}");
        if (i < 99) {
            named.push_back("C:\\a" + std::to_string(i));
        }
    }
    const Row rows[] = {
        {"another one every time", forEver, 0x20010199, named, 100},
        {"named at once", {more, ""}, 0, {"C:\\a", "C:\\b\u00e4"}, 2},
        {"named one after the other", {a, more, ""}, 0, {"C:\\a", "C:\\b\u00e4"}, 3},
        {"named in spite of being on the list", {a}, 0x20010199, {"C:\\a"}, 2},
        {"names no text at all", {"{\"incomplete\":[\"\xff\"]}"}, 0x20010199, {}, 1},
        {"nothing named", {"{}"}, 0x20010199, {}, 1},
        {"no list", {R"({"incomplete":"C:\\a"})"}, 0x20010199, {}, 1},
        {"no answer of ours", {"<html>"}, 0x20010199, {}, 1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        failed_->clear();
        service_.forget();
        size_t ends = 0;
        reply_ = [&](const Seen& seen) {
            if (seen.endpoint != "endjob") {
                return Answer{"200 OK"};
            }
            const std::string& body = row.refusals[std::min(ends, row.refusals.size() - 1)];
            ++ends;
            return body.empty() ? Answer{"200 OK"} : Answer{"409 Conflict", body};
        };
        const auto storage = makeStorage();
        const test::LogCapture quiet;
        SetLastError(0);
        EXPECT_EQ(storage->end(), row.error == 0);
        EXPECT_EQ(row.error == 0 ? 0 : GetLastError(), row.error);
        EXPECT_EQ(ends, row.ends);
        Names failed;
        for (const FailedItem& item : failed_->list()) {
            failed.push_back(item.path);
        }
        EXPECT_EQ(failed, row.failed);
        for (const Seen& seen : service_.seen()) {
            if (row.error == 0 && seen.endpoint == "AddErrorFiles") {
                EXPECT_NE(seen.body.find("C:\\\\a"), std::string::npos);
            }
        }
    }
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
    EXPECT_FAILS(ERROR_CANCELLED, storage->end());
    answer.set();
}

TEST_F(WebBackupStorageTest, AStopMakesEveryFailureACancellation) {
    const std::wstring path = makeSource(size_t{2} * uploadBlockSize);
    status_ = [this](const Seen& seen) {
        if (seen.endpoint == "uploadblock") {
            stop_.set();
            return "503 Service Unavailable";
        }
        return "200 OK";
    };
    const auto storage = makeStorage();
    EXPECT_FAILS(ERROR_CANCELLED, backup(*storage, path));
    EXPECT_EQ(record_.acceptedBlocks, 0u);

    // Ending the run does not heed the signal.
    EXPECT_TRUE(storage->cancel());
    EXPECT_EQ(service_.last().endpoint, "CancelJob");
    EXPECT_EQ(service_.last().body, std::string(R"({"id":")") + instance + "\"}");
}

TEST_F(WebBackupStorageTest, RefusesToStart) {
    using Run = WebBackupStorage::Run;
    const std::pair<void (*)(Run&), DWORD> rows[] = {
        {[](Run& run) { run.activity = nullptr; }, 87},
        {[](Run& run) { run.cookie.clear(); }, 0x20010191},
        {[](Run& run) { run.host.clear(); }, 87},
        {[](Run& run) { run.activity->instanceId.fill(0); }, 87},
    };
    for (const auto& [spoil, error] : rows) {
        Run run = makeRun();
        spoil(run);
        WebBackupStorage storage(std::move(run));
        test::LogCapture quiet;
        SetLastError(0);
        EXPECT_FAILS(error, storage.start());
    }
    EXPECT_TRUE(service_.seen().empty());
}

TEST_F(WebBackupStorageTest, OneCheckIsOneListToTheService) {
    test::singleton<OptionsImpl>().setServerInfo("s", "127.0.0.1", service_.port());
    test::singleton<CookieManagerImpl>().saveCookie("alice", "c");
    Web_Increment_Check check({job, "alice", "i", true, nullptr});
    const std::vector<IncrementCheck::File> files = {{L"C:\\x", 1}};
    std::vector<bool> send;
    status_ = [this](const Seen&) { return service_.seen().size() == 1 ? "503 Busy" : "200 OK"; };
    for (const char* first : {"true", "true", "false"}) {
        EXPECT_FALSE(check.check(files, send));  // {} is no answer
        EXPECT_NE(service_.last().body.find(std::string("\"first\":") + first), std::string::npos);
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

// A process that is killed between the two must not show a block that a resumed run does not know.
TEST_F(WebBackupStorageTest, ABlockIsOnRecordBeforeItShows) {
    test::StoreWatch watch;
    auto& record = *static_cast<JobActivity*>(watch.page());
    record = record_;
    WebBackupStorage::Run run = makeRun();
    run.activity = &record;
    WebBackupStorage storage(std::move(run));
    ASSERT_TRUE(storage.start());
    const std::wstring path = makeSource(size_t{3} * uploadBlockSize);
    constexpr size_t accepted = offsetof(JobActivity, acceptedBlocks);
    constexpr size_t shown = offsetof(JobActivity, fileOffset);
    std::vector<size_t> stores;
    watch.begin();
    EXPECT_TRUE(backup(storage, path));
    for (const size_t offset : watch.end()) {
        if (offset == accepted || offset == shown) {
            stores.push_back(offset);
        }
    }
    const std::vector<size_t> blocks = {accepted, shown, accepted, shown, accepted, shown};
    ASSERT_GE(stores.size(), blocks.size());
    stores.erase(stores.begin(), stores.end() - static_cast<ptrdiff_t>(blocks.size()));
    EXPECT_EQ(stores, blocks);
}

}  // namespace
}  // namespace dorvo
