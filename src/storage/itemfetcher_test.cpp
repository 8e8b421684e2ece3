#include "storage/itemfetcher.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>

#include "storage/items.h"
#include "storage/itemtemppath.h"
#include "support/fails_with.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"

namespace dorvo::test {
namespace {

using ResumeBy = ItemFetcher::ResumeBy;
using Steps = std::vector<FetchStep>;
using Blocks = std::vector<uint64_t>;

constexpr uint32_t number = 7;
constexpr uint64_t block = uploadBlockSize;

// Holds one package, and is asked to stop from a point of the record on.
class Fetched : public testing::Test, public interrupter, protected BlockSource {
protected:
    Fetched() {
        task_.activity = &record_;
        createDirectories(folder_.path() + L"\\out");
        hold(3 * block + 16);
    }
    bool interrupted() const override { return stops_(record_); }

    bool find(FetchedItem& item) override {
        SetLastError(findError_);
        item.data.dwFileAttributes = FILE_ATTRIBUTE_ARCHIVE;
        item.data.nFileSizeHigh = contentHigh_;
        item.size = held_.size() + (uint64_t{packageHigh_} << 32);
        return findError_ == 0;
    }
    bool begin(const FetchedItem&, HANDLE, uint64_t& kept) override {
        kept = trusts_ ? kept : 0;
        return true;
    }
    bool get(const FetchedItem&, uint64_t offset, std::span<const std::byte>& bytes) override {
        asked_.push_back(offset / block + 1);
        answer_ = held_.substr(offset, block);
        const DWORD error = get_(asked_.back());
        bytes = std::as_bytes(std::span(answer_));
        SetLastError(error);
        return error == 0;
    }
    bool check(const FetchedItem& item) override {
        const bool good = !checks_ || fileContent(item.package) == good_;
        SetLastError(ERROR_INVALID_DATA);
        return good;
    }
    void failed(FetchStep step, const FetchedItem&) const override { failed_.push_back(step); }

    // A file whose package has this size, a multiple of 16 above 0.
    void hold(uint64_t size) {
        content_.resize(size - 1);
        for (size_t i = 0; i < content_.size(); ++i) {
            content_[i] = static_cast<char>(i / 16 * 31 + i);
        }
        storeFile(folder_.path() + L"\\plain", content_);
        BackupTransformation encode;
        ASSERT_TRUE(encode.transform((folder_.path() + L"\\plain").c_str(), package_.c_str(),
                                     nullptr, nullptr));
        held_ = good_ = fileContent(package_);
        DeleteFileW(package_.c_str());
    }
    bool fetch(ResumeBy resume = ResumeBy::offset) {
        asked_.clear();
        failed_.clear();
        FetchedItem item(task_, L"C:\\a", target_, number, folder_.path());
        SetLastError(0);
        return ItemFetcher(task_, folder_.path(), resume, *this, *this).fetch(item, true);
    }
    // As an earlier run of the same item left it.
    void resume(uint64_t offset, const std::string& received) {
        record_.itemNumber = number;
        record_.packageSize = held_.size();
        record_.fileOffset = offset;
        record_.acceptedBlocks = static_cast<uint32_t>(
            offset == held_.size() ? (offset + block - 1) / block : offset / block);
        record_.transferred = 0;
        storeFile(package_, received);
    }

    const TemporaryFolder folder_{L"dorvo-fetched"};
    const std::wstring package_ = itemTempPath(folder_.path(), number);
    std::wstring target_ = folder_.path() + L"\\out\\a.txt";
    JobActivity record_{};
    RestoreTask task_{{"j", "name", {{}, {}}}};
    std::function<bool(const JobActivity&)> stops_ = [](const JobActivity&) { return false; };
    std::string content_, good_, held_, answer_;
    DWORD findError_ = 0, contentHigh_ = 0, packageHigh_ = 0;
    bool trusts_ = true;
    bool checks_ = false;
    std::function<DWORD(uint64_t)> get_ = [](uint64_t) { return ERROR_SUCCESS; };
    Blocks asked_;
    mutable Steps failed_;
    const LogCapture log_;
};

TEST_F(Fetched, GoesOnBehindWhatIsHere) {
    const uint64_t size = good_.size();
    const Blocks all = {1, 2, 3, 4};
    struct Row {
        const char* name;
        uint64_t offset;
        uint64_t received;
        Blocks asked;
        uint32_t item = number;
        uint64_t bytesMore = 0;  // of the package on record
        bool trusts = true;
    };
    const Row rows[] = {
        {"goes on", 2 * block, 2 * block, {3, 4}},
        {"more there than on record", 2 * block, size + 100, {3, 4}},
        {"all there", size, size, {}},
        {"in the middle of a block", 2 * block + 1, 2 * block + 500, {3, 4}},
        {"less there than on record", 2 * block, 2 * block - 1, all},
        {"another item's", 2 * block, 2 * block, all, 9},
        {"another package's", 2 * block, 2 * block, all, number, 16},
        {"not to be trusted", 2 * block, 2 * block, all, number, 0, false},
    };
    for (const ResumeBy by : {ResumeBy::offset, ResumeBy::blocks}) {
        for (const Row& row : rows) {
            SCOPED_TRACE(row.name);
            std::string received = good_.substr(0, row.received);
            received.resize(row.received, '#');
            resume(row.offset, received);
            record_.itemNumber = row.item;
            record_.packageSize += row.bytesMore;
            trusts_ = row.trusts;
            ASSERT_TRUE(fetch(by)) << GetLastError();
            EXPECT_EQ(fileContent(target_), content_);
            EXPECT_EQ(asked_, row.asked);
            EXPECT_EQ(record_.acceptedBlocks, 4u);
            EXPECT_EQ(record_.transferred,
                      asked_.empty() ? 0 : size - (asked_.front() - 1) * block);
            EXPECT_FALSE(exists(package_));
            DeleteFileW(target_.c_str());
        }
    }
    resume(size + block, good_ + std::string(block, '#'));
    ASSERT_TRUE(fetch()) << "an offset behind the end";
    EXPECT_EQ(asked_, all);
}

// Be it the source that tells, or the padding when it is decoded.
TEST_F(Fetched, APackageThatWasDamagedMeanwhileIsReceivedAgainOnce) {
    std::string bad;
    struct Row {
        const char* name;
        const std::string& held;
        uint64_t offset;
        DWORD error;
        Blocks asked;
    };
    const Row rows[] = {
        {"here", good_, good_.size(), 0, {1, 2, 3, 4}},
        {"there too", bad, good_.size(), ERROR_INVALID_DATA, {1, 2, 3, 4}},
        {"there only", bad, 0, ERROR_INVALID_DATA, {1, 2, 3, 4}},
        {"half of it there", bad, 2 * block, ERROR_INVALID_DATA, {3, 4, 1, 2, 3, 4}},
    };
    for (const bool checks : {false, true}) {
        checks_ = checks;
        bad = good_;
        bad[checks ? 0 : bad.size() - 1] ^= 1;
        for (const Row& row : rows) {
            SCOPED_TRACE(row.name);
            storeFile(target_, "old");
            const std::string held = row.held;
            held_ = held;
            resume(row.offset, bad);
            const bool done = fetch();
            EXPECT_EQ(done ? 0 : GetLastError(), row.error);
            EXPECT_EQ(asked_, row.asked);
            EXPECT_EQ(!failed_.empty(), row.error != 0 || !checks) << "it is said";
            EXPECT_EQ(fileContent(target_), done ? content_ : "old");
        }
    }
}

// It has no file, so that what a record says of it counts for nothing.
TEST_F(Fetched, APackageOfOneBlockIsReceivedInMemory) {
    struct Row {
        const char* name;
        std::function<DWORD(std::string&)> answer;
        DWORD error;
    };
    const Row rows[] = {
        {"whole", [](std::string&) { return 0; }, 0},
        {"none", [](std::string&) { return WSAECONNRESET; }, WSAECONNRESET},
        {"too short", [](std::string& a) { return a.pop_back(), 0; }, malformedBlock},
        {"too long", [](std::string& a) { return a.push_back('x'), 0; }, malformedBlock},
        {"damaged", [](std::string& a) { return a.back() ^= 1, 0; }, ERROR_INVALID_DATA},
    };
    for (const uint64_t size : {uint64_t{16}, block}) {
        hold(size);
        for (const Row& row : rows) {
            SCOPED_TRACE(row.name);
            storeFile(target_, "old");
            resume(size, std::string(size, '#'));
            get_ = [&](uint64_t) { return row.answer(answer_); };
            EXPECT_EQ(fetch() ? 0 : GetLastError(), row.error);
            EXPECT_EQ(asked_, Blocks{1});
            EXPECT_EQ(failed_.empty(), row.error == 0) << "it is said";
            EXPECT_TRUE(fileContent(target_) == (row.error == 0 ? content_ : "old"));
            const bool received = failed_ != Steps{FetchStep::block};
            EXPECT_EQ(record_.acceptedBlocks, received ? 1u : 0u);
            EXPECT_EQ(record_.transferred, received ? size : 0);
            DeleteFileW(package_.c_str());
        }
        stops_ = [](const JobActivity& record) { return record.currentFileState == 2; };
        EXPECT_FAILS(ERROR_CANCELLED, fetch());
        stops_ = [](const JobActivity&) { return false; };
    }
    record_ = {};
    get_ = [](uint64_t) { return ERROR_SUCCESS; };
    EXPECT_TRUE(fetch());
    EXPECT_FALSE(exists(package_)) << "no file is made for it";
    EXPECT_TRUE(log_.has("Start to download file data.\n"));
    EXPECT_TRUE(log_.has("File data {0} to {131072} downloaded.\n"));
}

TEST_F(Fetched, ABlockThatIsNoneFailsTheFileAndKeepsWhatCameBefore) {
    struct Row {
        const char* name;
        std::function<DWORD(std::string&)> second;
        DWORD error;
    };
    const Row rows[] = {
        {"none", [](std::string&) { return WSAECONNRESET; }, WSAECONNRESET},
        {"an answer that is none", [](std::string&) { return ERROR_INVALID_DATA; }, 13},
        {"empty", [](std::string& a) { return a.clear(), 0; }, malformedBlock},
        {"too short", [](std::string& a) { return a.pop_back(), 0; }, malformedBlock},
        {"too long", [](std::string& a) { return a.push_back('x'), 0; }, malformedBlock},
    };
    for (const bool begun : {false, true}) {
        for (const Row& row : rows) {
            SCOPED_TRACE(row.name);
            storeFile(target_, "old");
            resume(begun ? block : 0, good_.substr(0, block));
            get_ = [&](uint64_t at) { return at == 2 ? row.second(answer_) : 0; };
            EXPECT_FAILS(row.error, fetch());
            EXPECT_EQ(failed_, Steps{FetchStep::block});
            EXPECT_EQ(record_.fileOffset, block);
            EXPECT_EQ(record_.acceptedBlocks, 1u);
            EXPECT_EQ(fileContent(target_), "old");
            get_ = [](uint64_t) { return 0; };
            EXPECT_TRUE(fetch());
            EXPECT_EQ(asked_, (Blocks{2, 3, 4}));
            EXPECT_EQ(fileContent(target_), content_);
        }
    }
}

TEST_F(Fetched, NothingIsReceivedOfWhatHasNoPlace) {
    struct Row {
        const char* name;
        std::function<void()> spoil;
        DWORD error;
        FetchStep step;
    };
    const Row rows[] = {
        {"no room for its content", [&] { contentHigh_ = 1'000'000'000; }, ERROR_DISK_FULL,
         FetchStep::room},
        {"nor its package", [&] { packageHigh_ = 1'000'000'000; }, ERROR_DISK_FULL,
         FetchStep::room},
        {"not kept", [&] { findError_ = ERROR_FILE_NOT_FOUND; }, ERROR_FILE_NOT_FOUND,
         FetchStep::find},
        {"below a file", [&] { target_ = folder_.path() + L"\\plain\\a"; }, ERROR_DIRECTORY,
         FetchStep::parents},
        {"a folder is in its package's place", [&] { createDirectories(package_); },
         ERROR_ACCESS_DENIED, FetchStep::open},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::wstring target = target_;
        row.spoil();
        EXPECT_FAILS(row.error, fetch());
        EXPECT_EQ(failed_, Steps{row.step});
        EXPECT_TRUE(asked_.empty() && !exists(target));
        contentHigh_ = packageHigh_ = findError_ = 0;
        target_ = target;
    }
}

TEST_F(Fetched, AStopAtAnyStepIsOneFromWhichTheNextRunGoesOn) {
    constexpr uint64_t large = (uint64_t{2} << 20) + block;  // decoding asks after 2 MiB
    using Record = const JobActivity&;
    static int asked;
    const auto isDecoding = [](Record record) { return record.currentFileState == 1; };
    struct Row {
        const char* name;
        uint64_t size;
        std::function<bool(Record)> stop;
        FetchStep step;
        uint64_t left;  // the block with which the next run begins
    };
    const Row rows[] = {
        {"at once", block + 16, [](Record) { return true; }, FetchStep::next, 1},
        {"its folder made", block + 16, [](Record) { return ++asked == 2; }, FetchStep::next, 1},
        {"found", block + 16, [](Record r) { return r.packageSize != 0; }, FetchStep::next, 1},
        {"between blocks", 2 * block, [](Record r) { return r.fileOffset == block; },
         FetchStep::block, 2},
        {"received", 2 * block, [](Record r) { return r.fileOffset == 2 * block; },
         FetchStep::toDecode, 0},
        {"decoding", large, isDecoding, FetchStep::decode, 0},
        {"decoded", 2 * block, isDecoding, FetchStep::next, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        hold(row.size);
        record_ = {};
        asked = 0;
        stops_ = row.stop;
        EXPECT_FAILS(ERROR_CANCELLED, fetch());
        EXPECT_EQ(failed_, Steps{row.step});
        asked = 0;
        record_.currentFileState = 0;
        EXPECT_FAILS(ERROR_CANCELLED, fetch());
        EXPECT_TRUE(asked_.empty()) << "nothing again";
        EXPECT_FALSE(exists(target_));
        stops_ = [](Record) { return false; };
        EXPECT_TRUE(fetch());
        EXPECT_EQ(asked_.empty() ? 0 : asked_.front(), row.left);
        EXPECT_EQ(fileContent(target_), content_);
        DeleteFileW(target_.c_str());
    }
}

TEST_F(Fetched, AStoredBlockCountsAsDoneWhateverTheDiskTakes) {
    storeFile(package_, "before");
    ItemProgress progress(&record_);
    const std::string bytes = "bytes";
    const std::tuple<DWORD, size_t, uint64_t, DWORD> rows[] = {
        {GENERIC_WRITE, bytes.size(), 5, 0},
        {GENERIC_WRITE, 0, 0, 0},
        {GENERIC_READ, bytes.size(), 0, ERROR_ACCESS_DENIED},
    };
    for (const auto& [access, size, written, left] : rows) {
        record_.fileOffset = block;
        record_.transferred = 10;
        const FileHandle file(CreateFileW(package_.c_str(), access, 0, nullptr, OPEN_EXISTING,
                                          FILE_ATTRIBUTE_NORMAL, nullptr));
        const size_t logged = log_.lines().size();
        SetLastError(1);
        storeBlock(file.get(), std::as_bytes(std::span(bytes)).first(size), "C:\\x", block,
                   progress);
        EXPECT_EQ(GetLastError(), left);
        EXPECT_EQ(record_.fileOffset, block + written);
        EXPECT_EQ(record_.transferred, 10 + written);
        EXPECT_EQ(log_.lines().size() - logged, left != 0 ? 1u : 0u);
    }
    EXPECT_EQ(fileContent(package_), "bytese");
}

}  // namespace
}  // namespace dorvo::test
