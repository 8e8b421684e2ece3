#include "storage/web/scripted_restore.h"
// The sockets' header comes before the others.

#include "support/fails_with.h"
#include "support/files.h"
#include "support/log_capture.h"

namespace dorvo::test {
namespace {

class RestoredFile : public ScriptedRestore {};

TEST_F(RestoredFile, GoesOnAtTheOffsetOnRecord) {
    hold(3 * uploadBlockSize + 16);
    const uint64_t size = stored_.size();
    const Names all = {"1", "2", "3", "4"};
    struct Row {
        const char* name;
        uint32_t item;
        uint64_t packageSize;
        uint64_t offset;
        uint64_t received;
        Names blocks;
    };
    const Row rows[] = {
        {"goes on", number, size, 262144, 262144, {"3", "4"}},
        {"more there than on record", number, size, 262144, size + 100, {"3", "4"}},
        {"all there", number, size, size, size, {}},
        {"in the middle of a block", number, size, 262145, 270000, {"3", "4"}},
        {"less there than on record", number, size, 262144, 262143, all},
        {"another item's", 9, size, 262144, 262144, all},
        {"another package's", number, size + 16, 262144, 262144, all},
        {"behind the end", number, size, size + 131072, size + 131072, all},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const auto storage = makeStorage();
        std::string received = stored_.substr(0, row.received);
        received.resize(row.received, '#');
        resume(row.offset, received);
        record_.itemNumber = row.item;
        record_.packageSize = row.packageSize;
        LogCapture quiet;
        ASSERT_TRUE(restore(*storage));
        EXPECT_EQ(contentOf(target_), content_);
        EXPECT_EQ(blocks(), row.blocks);
        DeleteFileW(target_.c_str());
    }
}

TEST_F(RestoredFile, TrustsNothingFromBeforeTheMachineStarted) {
    hold(2 * uploadBlockSize + 16);
    const auto storage = makeStorage();
    resume(uploadBlockSize, std::string(uploadBlockSize, '\0'));
    FileHandle package(CreateFileW(package_.c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr,
                                   OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    constexpr FILETIME longAgo{0, 0x01C00000};
    ASSERT_NE(SetFileTime(package.get(), nullptr, nullptr, &longAgo), 0);
    package.reset();
    ASSERT_TRUE(restore(*storage));
    EXPECT_EQ(contentOf(target_), content_);
    EXPECT_EQ(blocks(), (Names{"1", "2", "3"}));
}

TEST_F(RestoredFile, APackageThatWasDamagedMeanwhileIsFetchedAgain) {
    hold(2 * uploadBlockSize + 16);
    const std::string good = stored_;
    std::string damaged = stored_;
    damaged.back() = static_cast<char>(damaged.back() ^ 1);  // the padding tells
    const Names all = {"1", "2", "3"};
    struct Row {
        const char* name;
        const std::string& received;
        const std::string& held;  // by the service
        uint64_t offset;
        DWORD error;
        Names blocks;
    };
    const Row rows[] = {
        {"damaged here", damaged, good, good.size(), 0, all},
        {"damaged there too", damaged, damaged, good.size(), ERROR_INVALID_DATA, all},
        {"damaged there only", damaged, damaged, 0, ERROR_INVALID_DATA, all},
        {"half of it there",
         damaged,
         damaged,
         uploadBlockSize,
         ERROR_INVALID_DATA,
         {"2", "3", "1", "2", "3"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        write(target_, "old");
        stored_ = row.held;
        const auto storage = makeStorage();
        resume(row.offset, row.received);
        const LogCapture quiet;
        SetLastError(0);
        const bool done = restore(*storage);
        EXPECT_EQ(done ? 0 : GetLastError(), row.error);
        EXPECT_EQ(blocks(), row.blocks);
        EXPECT_EQ(contentOf(target_), done ? content_ : "old");
    }
}

TEST_F(RestoredFile, ABlockThatIsNoneFailsTheFileAndKeepsWhatCameBefore) {
    hold(2 * uploadBlockSize + 16);
    const std::string good = stored_.substr(uploadBlockSize, uploadBlockSize);
    const std::string md5(32, 'f');
    struct Row {
        const char* name;
        std::optional<Answer> second;  // the answer to the second block
        DWORD error;
    };
    const Row rows[] = {
        {"a status", Answer{"404 Not Found"}, 0x20010194},
        {"without a length", Answer{.body = md5 + good, .chunked = true}, 0x20010258},
        {"half an MD5", Answer{.body = md5.substr(1)}, 0x20010258},
        {"an MD5 and no bytes", Answer{.body = md5}, 0x20010258},
        {"too short", Answer{.body = md5 + good.substr(1)}, 0x20010258},
        {"too long", Answer{.body = md5 + good + "x"}, ERROR_FILE_TOO_LARGE},
        {"no answer", std::nullopt, WSAEDISCON},
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
        LogCapture quiet;
        EXPECT_FAILS(row.error, restore(*storage));
        EXPECT_EQ(record_.fileOffset, uploadBlockSize);
        EXPECT_EQ(contentOf(target_), "old");
        // The next try goes on there.
        reply_ = nullptr;
        service_.forget();
        EXPECT_TRUE(restore(*storage));
        EXPECT_EQ(blocks(), (Names{"2", "3"}));
        EXPECT_EQ(contentOf(target_), content_);
    }
}

TEST_F(RestoredFile, AGarbledAnswerTakesNothingAway) {
    hold(2 * uploadBlockSize + 16);
    const auto storage = makeStorage();
    resume(uploadBlockSize, stored_.substr(0, uploadBlockSize));
    record_.packageSize = stored_.size();
    reply_ = [&](const Seen& seen) {
        const bool second =
            seen.endpoint == "DownloadFileBlock" && member(seen, "blockindex") == "2";
        return second ? std::optional(Answer{.status = "garbled\r\n:"}) : reply(seen);
    };
    const LogCapture quiet;
    EXPECT_FAILS(ERROR_INVALID_DATA, restore(*storage));
    EXPECT_EQ(record_.fileOffset, uploadBlockSize);
    for (const std::string& block : blocks()) {
        EXPECT_EQ(block, "2");
    }
}

TEST_F(RestoredFile, IsNotFetchedWithoutRoomForIt) {
    hold(uploadBlockSize);
    const std::pair<const char*, const char*> huge[] = {
        {"\"nFileSizeHigh\":0", "\"nFileSizeHigh\":1000000000"},  // its content
        {"\"totalsizeHigh\":0", "\"totalsizeHigh\":1000000000"},  // its package
    };
    for (const auto& [word, words] : huge) {
        SCOPED_TRACE(words);
        reply_ = [&, from = std::string(word), to = std::string(words)](const Seen& seen) {
            std::optional<Answer> answer = reply(seen);
            if (const size_t at = answer->body.find(from); at != std::string::npos) {
                answer->body.replace(at, from.size(), to);
            }
            return answer;
        };
        const auto storage = makeStorage();
        LogCapture quiet;
        EXPECT_FAILS(ERROR_DISK_FULL, restore(*storage));
        EXPECT_EQ(service_.endpoints(), Names{"GetFileInfo"});
        EXPECT_FALSE(exists(target_));
    }
}

// Is asked to stop from a point of the record on.
class StoppingStorage : public WebRestoreStorage {
public:
    using When = bool (*)(const JobActivity&);

    StoppingStorage(const WebPlace& place, const RestoreTask& task, When when)
        : WebRestoreStorage(place, task), record_(*task.activity), when_(when) {}
    bool interrupted() const override {
        return (armed && when_(record_)) || WebRestoreStorage::interrupted();
    }

    bool armed = false;

private:
    const JobActivity& record_;
    When when_;
};

TEST_F(RestoredFile, AStopAtAnyStepIsACancellationFromWhichTheNextRunGoesOn) {
    constexpr size_t small = 2 * uploadBlockSize + 16;
    constexpr size_t large = (size_t{2} << 20) + uploadBlockSize;  // decoding asks after 2 MiB
    using Record = const JobActivity&;
    const auto never = [](Record) { return false; };
    const auto isDecoding = [](Record record) { return record.currentFileState == 1; };
    const Names all = {"1", "2", "3"};
    struct Row {
        const char* name;
        size_t size;
        StoppingStorage::When when;
        const char* refused;  // the stop comes with a refusal of this request or block
        Names left;
    };
    const Row rows[] = {
        {"at once", small, [](Record) { return true; }, "", all},
        {"asking", small, never, "GetFileInfo", all},
        {"known", small, [](Record record) { return record.currentFileState == 2; }, "", all},
        {"a block fails", small, never, "2", {"2", "3"}},
        {"between blocks", small, [](Record r) { return r.fileOffset == 262144; }, "", {"3"}},
        {"received", small, [](Record r) { return r.fileOffset == small; }, "", {}},
        {"decoding", large, isDecoding, "", {}},
        {"decoded", small, isDecoding, "", {}},
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
        StoppingStorage storage(place(), makeTask(), row.when);
        ASSERT_TRUE(storage.start());
        storage.armed = true;
        LogCapture quiet;
        EXPECT_FAILS(ERROR_CANCELLED, restore(storage));
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

TEST_F(RestoredFile, FilesThatHaveNoPlaceFailBeforeAnythingIsReceived) {
    hold(16);
    write(dataPath(L"\\out\\file"), "");
    const auto storage = makeStorage();
    LogCapture quiet;
    target_ = dataPath(L"\\out\\file\\a.txt");
    EXPECT_FAILS(ERROR_DIRECTORY, restore(*storage));
    target_.clear();
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, restore(*storage));
    EXPECT_TRUE(service_.seen().empty());
    // A package that cannot be received: a folder is in its place.
    target_ = dataPath(L"\\out\\a.txt");
    createDirectories(package_);
    EXPECT_FALSE(restore(*storage));
    EXPECT_TRUE(blocks().empty());
}

}  // namespace
}  // namespace dorvo::test
