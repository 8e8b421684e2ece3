#include "storage/web/scripted_backup.h"
// The sockets' header comes before the others.

#include "base/handle.h"
#include "base/md5.h"
#include "storage/itemtemppath.h"
#include "support/fails_with.h"

namespace dorvo::test {
namespace {

class SentFile : public ScriptedBackupService {};

json_spirit::Object bodyOf(const Seen& seen) {
    json_spirit::Value body;
    json_spirit::read_or_throw(seen.body, body);
    return body.get_obj();
}

TEST_F(SentFile, AFileIsAnnouncedAndSentInBlocks) {
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
    EXPECT_FALSE(exists(itemTempPath(itemTempFolder(job), 7)));

    ASSERT_TRUE(backup(*storage, dataPath(L"\\job\\")));
    ASSERT_EQ(service_.last().endpoint, "uploadfile");  // a directory has no data
    const json_spirit::Object folder = bodyOf(service_.last());
    EXPECT_EQ(folder.at("type").get_str(), "folder");
    EXPECT_EQ(folder.at("sourcename").get_str(), toUtf8(dataPath(L"\\job")));
}

// Two of four blocks are accepted; then something happens before the run goes on.
TEST_F(SentFile, AResumedFileGoesOnBehindItsAcceptedBlocksWhenItBeginsWithThem) {
    const size_t size = size_t{3} * uploadBlockSize + 16;
    const Names all = {"1", "2", "3", "4"};
    const Names left = {"3", "4"};
    const auto put = [](const std::wstring& path, size_t at) {
        const FileHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                          FILE_ATTRIBUTE_NORMAL, nullptr));
        const FILETIME written = dataOf(path).ftLastWriteTime;
        OVERLAPPED place{};
        place.Offset = static_cast<DWORD>(at);
        DWORD length = 0;
        WriteFile(file.get(), "#", 1, &length, &place);
        SetFileTime(file.get(), nullptr, nullptr, &written);
    };
    using Source = const std::wstring&;
    struct Row {
        const char* name;
        std::function<void(Source)> change;
        Names blocks;
    };
    const Row rows[] = {
        {"nothing", [](Source) {}, left},
        {"another content behind them",
         [&](Source path) { put(path, size_t{2} * uploadBlockSize); }, left},
        {"another content of the same time and size",
         [&](Source path) { put(path, size_t{2} * uploadBlockSize - 17); }, all},
        {"more on record", [&](Source) { record_.acceptedBlocks = 3; }, all},
        {"less on record", [&](Source) { record_.acceptedBlocks = 1; }, {"2", "3", "4"}},
        {"another run", [&](Source) { record_.instanceId.fill(0x22); }, all},
        {"a record of an older version", [&](Source) { DeleteFileW(known().c_str()); }, all},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::wstring path = makeSource(size);
        sendInPart(path, 2);
        row.change(path);
        service_.forget();
        EXPECT_TRUE(backup(*makeStorage(), path));
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
TEST_F(SentFile, AResumedFileGoesBackToWhatTheServiceStillHolds) {
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
        const LogCapture quiet;
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
TEST_F(SentFile, BlocksOfAContentThatWasGivenUpAreNeverTakenForAcceptedAgain) {
    const size_t size = size_t{3} * uploadBlockSize + 16;
    const std::wstring path = makeSource(size);
    const WIN32_FILE_ATTRIBUTE_DATA data = dataOf(path);
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
    EXPECT_TRUE(makeStorage()->backup(path.c_str(), dataOf(path), 1, nullptr));
    EXPECT_EQ(blocks(), (Names{"1", "2", "3", "4"}));
}

TEST_F(SentFile, AStopWhileTheAcceptedBlocksAreComparedKeepsThem) {
    const std::wstring path = makeSource(size_t{3} * uploadBlockSize + 16);
    sendInPart(path, 2);
    {
        const auto storage = makeStorage();
        const LogCapture log;
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
TEST_F(SentFile, BlocksThatCannotBeWrittenDownAreSentAllTheSame) {
    createDirectories(known());
    const LogCapture quiet;
    EXPECT_TRUE(backup(*makeStorage(), makeSource(size_t{2} * uploadBlockSize)));
    EXPECT_EQ(blocks(), (Names{"1", "2"}));
    EXPECT_EQ(record_.acceptedBlocks, 0u);
}

}  // namespace
}  // namespace dorvo::test
