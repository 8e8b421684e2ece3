#include "support/scripted_service.h"
// The sockets' header comes before the others.
#include "storage/webrestorestorage.h"

#include <gtest/gtest.h>

#include <memory>

#include "base/paths.h"
#include "base/text.h"
#include "job/source/backuptransformation.h"
#include "storage/downloadedblock.h"
#include "storage/item_attributes.h"
#include "storage/itemtemppath.h"
#include "support/log_capture.h"
#include "support/signal.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

using Names = std::vector<std::string>;
using test::Answer;
using test::Seen;

constexpr char job[] = "j1";
constexpr char backupId[] = "22222222-2222-2222-2222-222222222222";
constexpr uint32_t number = 7;
// Far from any clock, and what the service says of the file.
constexpr char attributes[] =
    R"("attri":{"dwFileAttributes":%ATTR%,"nFileSizeHigh":0,"nFileSizeLow":1,)"
    R"("ftCreationTimedwHighDateTime":29000000,"ftCreationTimedwLowDateTime":10,)"
    R"("ftLastAccessTimedwHighDateTime":29100000,"ftLastAccessTimedwLowDateTime":20,)"
    R"("ftLastWriteTimedwHighDateTime":29200000,"ftLastWriteTimedwLowDateTime":30})";

std::string member(const Seen& seen, const char* name) {
    json_spirit::Value body;
    json_spirit::read_or_throw(seen.body, body);
    return body.get_obj().at(name).get_str();
}

// The service holds one package, and one file by whatever name it is asked for.
class WebRestoreStorageTest : public test::StoreTest {
protected:
    WebRestoreStorageTest()
        : service_([this](const Seen& seen) { return reply_ ? reply_(seen) : reply(seen); }) {
        record_.reset(static_cast<int32_t>(JobState::running), true);
        record_.instanceId.fill(0x11);
        createDirectories(itemTempFolder(job));
        std::wstring directory;
        jobDirectory(job, directory);
        failed_ = std::make_unique<FailedItems>(toUtf8(directory + L"\\errors"), record_);
        createDirectories(dataPath(L"\\out"));
        target_ = dataPath(L"\\out\\a.txt");
        package_ = itemTempPath(itemTempFolder(job), number);
    }

    WebRestoreStorage::Run makeRun() {
        WebRestoreStorage::Run run;
        run.jobId = job;
        run.jobName = "name";
        run.machine = "PC";
        run.jobDefinitionId = "def";
        run.jobInstanceId = backupId;
        run.user = "nobody";
        run.cookie = "DORVOSESSION=abc";
        run.host = "127.0.0.1";
        run.port = service_.port();
        run.key.fill(1);
        run.iv.fill(2);
        run.activity = &record_;
        run.failed = failed_.get();
        run.stop = stop_.handle();
        run.finishPatienceMs = INFINITE;
        return run;
    }
    // A started one.
    std::unique_ptr<WebRestoreStorage> makeStorage() {
        auto storage = std::make_unique<WebRestoreStorage>(makeRun());
        EXPECT_TRUE(storage->start());
        service_.forget();
        return storage;
    }
    bool restore(WebRestoreStorage& storage, bool replace = true) {
        return storage.restoreFile(L"C:\\data\\a.txt", target_.c_str(), number, replace);
    }
    // What the service holds: a file whose package has this size, a multiple of 16 above 0.
    void hold(size_t packageSize, bool compressed = false) {
        content_.resize(compressed ? packageSize : packageSize - 1);
        for (size_t i = 0; i < content_.size(); ++i) {
            content_[i] = static_cast<char>(i / 16 * 31 + i);
        }
        const std::wstring source = dataPath(L"\\source");
        const std::wstring made = dataPath(L"\\package");
        write(source, content_);
        BackupTransformation encode(compressed);
        encode.key.fill(1);
        encode.iv.fill(2);
        ASSERT_TRUE(encode.transform(source.c_str(), made.c_str(), nullptr, nullptr));
        stored_ = contentOf(made);
        compressed_ = compressed;
    }
    std::optional<Answer> reply(const Seen& seen) const {
        if (seen.endpoint == "StartRestoreJob") {
            return Answer{.body = R"({"jobinstanceid":"r1","totalfiles":1,)"
                                  R"("totaldirectories":0,"totalsize":9})"};
        }
        if (seen.endpoint == "GetFileInfo") {
            std::string attri = attributes;
            attri.replace(attri.find("%ATTR%"), 6, std::to_string(attributes_));
            const bool folder = (attributes_ & FILE_ATTRIBUTE_DIRECTORY) != 0;
            return Answer{
                .body = "{" + attri + R"(,"type":")" + (folder ? "folder" : "file") +
                        R"(","totalsizeHigh":0,"totalsizeLow":)" + std::to_string(stored_.size()) +
                        R"(,"totalblock":1,"compress":)" + (compressed_ ? "true}" : "false}")};
        }
        return seen.endpoint == "DownloadFileBlock" ? Answer{.body = block(seen)} : Answer{};
    }
    // The MD5, which nobody compares, and the bytes.
    std::string block(const Seen& seen) const {
        const size_t index = std::stoul(member(seen, "blockindex"));
        return std::string(32, 'f') +
               stored_.substr((index - 1) * uploadBlockSize, uploadBlockSize);
    }
    Names blocks() const {
        Names indexes;
        for (const Seen& seen : service_.seen()) {
            if (seen.endpoint == "DownloadFileBlock") {
                indexes.push_back(member(seen, "blockindex"));
            }
        }
        return indexes;
    }
    bool exists(const std::wstring& path) const {
        return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
    }
    // As an earlier run of the same item left it.
    void resume(uint64_t offset, const std::string& received) {
        record_.itemNumber = number;
        record_.packageSize = stored_.size();
        record_.fileOffset = offset;
        write(package_, received);
    }

    JobActivity record_{};
    test::Signal stop_;
    std::unique_ptr<FailedItems> failed_;
    std::wstring target_;
    std::wstring package_;
    std::string content_;
    std::string stored_;
    bool compressed_ = false;
    DWORD attributes_ = FILE_ATTRIBUTE_ARCHIVE;
    std::function<std::optional<Answer>(const Seen&)> reply_;
    test::ScriptedService service_;
};

TEST_F(WebRestoreStorageTest, AFileComesBackWithItsAttributesAndTimes) {
    hold(2 * uploadBlockSize + 16);
    attributes_ = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE;
    target_ = dataPath(L"\\out\\new\\deep\\a.txt");
    WebRestoreStorage storage(makeRun());
    ASSERT_TRUE(storage.start());
    ASSERT_TRUE(restore(storage));
    EXPECT_EQ(contentOf(target_), content_);
    WIN32_FILE_ATTRIBUTE_DATA data{};
    ASSERT_NE(GetFileAttributesExW(target_.c_str(), GetFileExInfoStandard, &data), 0);
    EXPECT_EQ(data.dwFileAttributes, attributes_);
    EXPECT_EQ(data.ftLastWriteTime.dwHighDateTime, 29200000u);
    EXPECT_EQ(data.ftLastWriteTime.dwLowDateTime, 30u);
    EXPECT_FALSE(exists(package_));

    ASSERT_EQ(service_.endpoints(), (Names{"StartRestoreJob", "GetFileInfo", "DownloadFileBlock",
                                           "DownloadFileBlock", "DownloadFileBlock"}));
    EXPECT_EQ(service_.seen()[0].body,
              std::string(R"({"jobdefinitionid":"def","jobinstanceid":")") + backupId + "\"}");
    const std::string place = std::string(R"("filename":"a.txt","jobinstanceid":")") + backupId +
                              R"(","machine":"PC","path":"C:\\data"})";
    EXPECT_EQ(service_.seen()[1].body, "{" + place);
    EXPECT_EQ(service_.seen()[4].body, R"({"blockindex":"3",)" + place);
    const char* const paths[] = {
        "/dorvo/WebServer/jobs/StartRestoreJob.php",
        "/dorvo/Storage%20Server/RestoreServer/GetFileInfo.php",
        "/dorvo/Storage%20Server/RestoreServer/DownloadFileBlock.php",
    };
    for (size_t i = 0; i < std::size(paths); ++i) {
        const std::string& head = service_.seen()[i].head;
        EXPECT_EQ(head.find("POST " + std::string(paths[i]) + " HTTP/1.1\r\n"), 0u);
        EXPECT_NE(head.find("\r\nCookie: DORVOSESSION=abc\r\n"), std::string::npos);
    }

    uint64_t wire = 3 * 32 + stored_.size();
    for (const Seen& seen : service_.seen()) {
        wire += seen.body.size();
    }
    EXPECT_EQ(record_.wireSize, wire);
    EXPECT_EQ(record_.itemNumber, number);
    EXPECT_EQ(record_.packageSize, stored_.size());
    EXPECT_EQ(record_.fileSize, stored_.size());
    EXPECT_EQ(record_.fileOffset, stored_.size());
    EXPECT_EQ(record_.transferred, stored_.size());
    SetFileAttributesW(target_.c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST_F(WebRestoreStorageTest, PackagesOfAnySizeComeBack) {
    for (const bool compressed : {false, true}) {
        for (const size_t size :
             {size_t{16}, size_t{uploadBlockSize}, size_t{uploadBlockSize} + 16}) {
            SCOPED_TRACE(std::to_string(size) + (compressed ? " compressed" : ""));
            hold(size, compressed);
            const auto storage = makeStorage();
            record_.itemNumber = 0;
            ASSERT_TRUE(restore(*storage));
            EXPECT_EQ(contentOf(target_), content_);
            EXPECT_EQ(blocks().size(), packageBlocks(stored_.size()));
        }
    }
}

TEST_F(WebRestoreStorageTest, GoesOnAtTheOffsetOnRecord) {
    hold(3 * uploadBlockSize + 16);
    const uint64_t size = stored_.size();
    constexpr const char* tooSmall =
        "File size is smaller than file offset recorded by job activity.\n";
    const Names all = {"1", "2", "3", "4"};
    struct Row {
        const char* name;
        uint32_t item;
        uint64_t packageSize;
        uint64_t offset;
        uint64_t received;
        Names blocks;
        bool warned;
    };
    const Row rows[] = {
        {"goes on", number, size, 262144, 262144, {"3", "4"}, false},
        {"more there than on record", number, size, 262144, size + 100, {"3", "4"}, false},
        {"all there", number, size, size, size, {}, false},
        {"in the middle of a block", number, size, 262145, 270000, {"3", "4"}, false},
        {"less there than on record", number, size, 262144, 262143, all, true},
        {"another item's", 9, size, 262144, 262144, all, false},
        {"another package's", number, size + 16, 262144, 262144, all, false},
        {"behind the end", number, size, size + 131072, size + 131072, all, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const auto storage = makeStorage();
        std::string received = stored_.substr(0, row.received);
        received.resize(row.received, '#');
        resume(row.offset, received);
        record_.itemNumber = row.item;
        record_.packageSize = row.packageSize;
        test::LogCapture capture;
        ASSERT_TRUE(restore(*storage));
        EXPECT_EQ(contentOf(target_), content_);
        EXPECT_EQ(blocks(), row.blocks);
        EXPECT_EQ(capture.has(LogLevel::warning, tooSmall), row.warned);
        DeleteFileW(target_.c_str());
    }
}

TEST_F(WebRestoreStorageTest, ABlockThatIsNoneFailsTheFileAndKeepsWhatCameBefore) {
    hold(2 * uploadBlockSize + 16);
    const std::string good = stored_.substr(uploadBlockSize, uploadBlockSize);
    const std::string md5(32, 'f');
    struct Row {
        const char* name;
        std::optional<Answer> second;  // the answer to the second block
        DWORD error;
        std::string message;  // without "file {C:\data\a.txt}, offset {131072}, "
    };
    const Row rows[] = {
        {"a status", Answer{"404 Not Found"}, 0x20010194, "error-code = 404, Not Found.\n"},
        {"without a length", Answer{.body = md5 + good, .chunked = true}, 0x20010258,
         "the size of data {size: 131104} readed is not as large as \"Content-Length\" "
         "{Content-Length: 0}.\n"},
        {"half an MD5", Answer{.body = md5.substr(1)}, 0x20010258,
         "the size of data {size: 31} is small than the MD5 size {32 bytes}.\n"},
        {"an MD5 and no bytes", Answer{.body = md5}, 0x20010258, ""},
        {"too short", Answer{.body = md5 + good.substr(1)}, 0x20010258, ""},
        {"too long", Answer{.body = md5 + good + "x"}, ERROR_FILE_TOO_LARGE, ""},
        {"no answer", std::nullopt, WSAEDISCON, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        write(target_, "old");
        reply_ = [&](const Seen& seen) {
            return seen.endpoint == "DownloadFileBlock" && member(seen, "blockindex") == "2"
                       ? row.second
                       : reply(seen);
        };
        record_.itemNumber = 0;
        const auto storage = makeStorage();
        test::LogCapture capture;
        EXPECT_FALSE(restore(*storage));
        EXPECT_EQ(GetLastError(), row.error);
        EXPECT_EQ(record_.fileOffset, uploadBlockSize);
        EXPECT_EQ(contentOf(target_), "old");
        if (!row.message.empty()) {
            const bool status = row.error == 0x20010194;
            EXPECT_TRUE(capture.has(LogLevel::error,
                                    std::string(status ? "Download file data failed, "
                                                       : "Failed to download file data, ") +
                                        "file {C:\\data\\a.txt}, offset {131072}, " + row.message));
        }
        // The next try goes on there.
        reply_ = nullptr;
        service_.forget();
        EXPECT_TRUE(restore(*storage));
        EXPECT_EQ(blocks(), (Names{"2", "3"}));
        EXPECT_EQ(contentOf(target_), content_);
    }
}

TEST_F(WebRestoreStorageTest, WhatCannotBeDecodedLeavesTheOldFile) {
    struct Row {
        const char* name;
        bool wrongKey;
        bool compressed;
    };
    for (const Row& row :
         {Row{"a wrong key", true, false}, Row{"a damaged package", false, true}}) {
        SCOPED_TRACE(row.name);
        hold(uploadBlockSize, row.compressed);
        stored_[stored_.size() / 2] ^= static_cast<char>(row.wrongKey ? 0 : 1);
        write(target_, "old");
        record_.itemNumber = 0;
        WebRestoreStorage::Run run = makeRun();
        run.key.fill(row.wrongKey ? 9 : 1);
        WebRestoreStorage storage(std::move(run));
        ASSERT_TRUE(storage.start());
        test::LogCapture capture;
        EXPECT_FALSE(restore(storage));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_DATA});
        EXPECT_EQ(contentOf(target_), "old");
        const auto lines = capture.lines();
        const std::string start = "Decrypt/Decompress file {original {C:\\data\\a.txt}, target {" +
                                  toUtf8(package_) + "}, new {" + toUtf8(target_) +
                                  "}} failed, error-code = 13, ";
        EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const test::LogLine& line) {
            return line.text.starts_with(start);
        }));
        // Nothing but the old file is there, and nothing stays when the item is given up.
        WIN32_FIND_DATAW entry;
        const FindHandle find(FindFirstFileW(dataPath(L"\\out\\*tmp").c_str(), &entry));
        EXPECT_FALSE(find);
        EXPECT_TRUE(exists(package_));
        EXPECT_TRUE(storage.recordError(L"C:\\data\\a.txt", 13, ""));
        EXPECT_FALSE(exists(package_));
    }
}

// Is asked to stop from a point of the record on.
class StoppingStorage : public WebRestoreStorage {
public:
    using When = bool (*)(const JobActivity&);

    StoppingStorage(Run run, When when)
        : WebRestoreStorage(run), record_(*run.activity), when_(when) {}
    bool interrupted() const override {
        return (armed && when_(record_)) || WebRestoreStorage::interrupted();
    }

    bool armed = false;

private:
    const JobActivity& record_;
    When when_;
};

TEST_F(WebRestoreStorageTest, AStopAtAnyStepIsACancellationFromWhichTheNextRunGoesOn) {
    constexpr size_t small = 2 * uploadBlockSize + 16;
    constexpr size_t large = (size_t{2} << 20) + uploadBlockSize;  // decoding asks after 2 MiB
    const auto never = [](const JobActivity&) { return false; };
    const auto isDecoding = [](const JobActivity& record) { return record.currentFileState == 1; };
    const Names all = {"1", "2", "3"};
    struct Row {
        const char* name;
        size_t size;
        StoppingStorage::When when;
        const char* refused;  // the stop comes with a refusal of this request or block
        const char* message;  // with %F for "file {C:\data\a.txt}"
        Names left;
    };
    const Row rows[] = {
        {"at once", small, [](const JobActivity&) { return true; }, "",
         "Restoring %F is cancelled, at offset {0}.\n", all},
        {"asking", small, never, "GetFileInfo",
         "Restoring %F is cancelled when download file information, offset {0}.\n", all},
        {"known", small, [](const JobActivity& record) { return record.currentFileState == 2; }, "",
         "Restoring %F is cancelled, at offset {0}.\n", all},
        {"a block fails",
         small,
         never,
         "2",
         "Restoring %F is cancelled when download file data, offset {131072}.\n",
         {"2", "3"}},
        {"between blocks",
         small,
         [](const JobActivity& record) { return record.fileOffset == 262144; },
         "",
         "Restoring %F is cancelled when download file data, offset {262144}.\n",
         {"3"}},
        {"received",
         small,
         [](const JobActivity& record) { return record.fileOffset == small; },
         "",
         "Restoring is cancelled when going to decrypt/decompress %F.\n",
         {}},
        {"decoding",
         large,
         isDecoding,
         "",
         "Restoring is cancelled when decrypt/decompress %F.\n",
         {}},
        {"decoded", small, isDecoding, "", "Restoring %F is cancelled, at offset {262160}.\n", {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        hold(row.size);
        record_.reset(static_cast<int32_t>(JobState::running), true);
        reply_ = [&](const Seen& seen) {
            Answer answer = *reply(seen);
            const bool block = seen.endpoint == "DownloadFileBlock";
            if (row.refused == (block ? member(seen, "blockindex") : seen.endpoint)) {
                stop_.set();
                answer.status = "503 Busy";
            }
            return answer;
        };
        StoppingStorage storage(makeRun(), row.when);
        ASSERT_TRUE(storage.start());
        storage.armed = true;
        test::LogCapture capture;
        EXPECT_FALSE(restore(storage));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_CANCELLED});
        std::string message = row.message;
        message.replace(message.find("%F"), 2, "file {C:\\data\\a.txt}");
        EXPECT_TRUE(capture.has(LogLevel::information, message));
        EXPECT_FALSE(exists(target_));
        stop_.reset();
        reply_ = nullptr;
        const auto resumed = makeStorage();
        EXPECT_TRUE(restore(*resumed));
        EXPECT_EQ(blocks(), row.left);
        EXPECT_EQ(contentOf(target_), content_);
        DeleteFileW(target_.c_str());
    }
}

TEST_F(WebRestoreStorageTest, AFileThatMustNotBeReplacedStays) {
    hold(16);
    write(target_, "old");
    const auto storage = makeStorage();
    EXPECT_FALSE(restore(*storage, false));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_EXISTS});
    EXPECT_EQ(contentOf(target_), "old");
    EXPECT_TRUE(restore(*storage, true));
    EXPECT_EQ(contentOf(target_), content_);
}

TEST_F(WebRestoreStorageTest, FilesThatHaveNoPlaceFailBeforeAnythingIsReceived) {
    hold(16);
    write(dataPath(L"\\out\\file"), "");
    const auto storage = makeStorage();
    test::LogCapture capture;
    target_ = dataPath(L"\\out\\file\\a.txt");
    EXPECT_FALSE(restore(*storage));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_DIRECTORY});
    target_.clear();
    EXPECT_FALSE(restore(*storage));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_TRUE(capture.has(LogLevel::error, "Invalid path, orignal {C:\\data\\a.txt}, new {}.\n"));
    EXPECT_TRUE(service_.seen().empty());
    // A package that cannot be received: a folder is in its place.
    target_ = dataPath(L"\\out\\a.txt");
    createDirectories(package_);
    EXPECT_FALSE(restore(*storage));
    EXPECT_TRUE(blocks().empty());
}

TEST_F(WebRestoreStorageTest, DirectoriesComeBackWithTheirAttributes) {
    attributes_ = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_HIDDEN;
    const auto storage = makeStorage();
    const std::wstring target = dataPath(L"\\out\\dir\\sub");
    test::LogCapture capture;
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
        test::LogCapture capture;
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
        test::LogCapture capture;
        EXPECT_FALSE(storage.end(history));
        EXPECT_EQ(GetLastError(), 0x20010194u);
        EXPECT_EQ(service_.last().endpoint, row.refused);
        EXPECT_TRUE(capture.has(LogLevel::error, row.message));
    }
    service_.forget();
    test::LogCapture capture;
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

TEST_F(WebRestoreStorageTest, ABlockCountsAsDoneWhateverTheDiskTakes) {
    write(package_, "before");
    const std::string body = std::string(32, 'f') + "bytes";
    struct Row {
        DWORD access;
        size_t size;
        uint64_t written;
        DWORD left;
    };
    const Row rows[] = {
        {GENERIC_WRITE, body.size(), 5, 0},
        {GENERIC_WRITE, 32, 0, 0},
        {GENERIC_READ, body.size(), 0, ERROR_ACCESS_DENIED},
    };
    for (const Row& row : rows) {
        record_.fileOffset = 131072;
        record_.transferred = 10;
        const FileHandle file(CreateFileW(package_.c_str(), row.access, 0, nullptr, OPEN_EXISTING,
                                          FILE_ATTRIBUTE_NORMAL, nullptr));
        test::LogCapture capture;
        SetLastError(1);
        EXPECT_TRUE(storeDownloadedBlock(file.get(), {body.data(), row.size}, row.size, "C:\\x",
                                         131072, record_));
        EXPECT_EQ(GetLastError(), row.left);
        EXPECT_EQ(record_.fileOffset, 131072 + row.written);
        EXPECT_EQ(record_.transferred, 10 + row.written);
        const auto lines = capture.lines();
        EXPECT_EQ(lines.size(), row.left != 0 ? 1u : 0u);
        for (const test::LogLine& line : lines) {
            EXPECT_TRUE(line.text.starts_with(
                "Failed to write file, file {C:\\x}, offset {131072}, error-code = 5, "));
        }
    }
    EXPECT_EQ(contentOf(package_), "bytese");
}

}  // namespace
}  // namespace dorvo
