// What every storage back end promises, seen through the interfaces only.
#include "contract/storagecontract.h"
#include "support/failing_open.h"
#include "support/fails_with.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <set>

#include "base/error_codes.h"

namespace dorvo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_P(StorageContract, SizesAroundEveryBorderComeBack) {
    std::set<size_t> sizes = {0, 1};
    for (const size_t border : {size_t{16}, size_t{uploadBlockSize}, size_t{2} * uploadBlockSize,
                                size_t{3} * uploadBlockSize}) {
        for (const size_t distance : {17U, 16U, 15U, 1U, 0U}) {
            sizes.insert(border + distance);
            sizes.insert(border - std::min(border, distance));
        }
    }
    for (const size_t size : sizes) {
        put(L"noise\\" + std::to_wstring(size), noise(size, static_cast<unsigned>(size)));
    }
    put(L"plain.txt", std::string(size_t{5} * uploadBlockSize, 'x'));
    for (const bool compress : {false, true}) {
        SCOPED_TRACE(compress);
        compress_ = compress;
        backupJob_ = newJob();
        expectComesBack(complete());
    }
}

TEST_P(StorageContract, AnyNameComesBackAndIsFoundByItsFolder) {
    const std::wstring longName(255, L'n');
    put(L"a\\Gr\u00fc\u00dfe & s\u00f6hne's 50% [1] {x} #;.txt", "1");
    put(L"a\\\u65e5\u672c\u8a9e\\\u043f\u0440\u0438\u043c\u0435\u0440.dat", "2");
    put(L"ab\\" + longName, "3");
    put(L"ab\\" + std::wstring(120, L'x') + L"\\" + std::wstring(120, L'y') + L"\\deep", "4");
    put(L"a.b", "5");
    createDirectories(source(L"empty\\in it"));
    const std::string of = complete();
    expectComesBack(of);
    EXPECT_NE(dataOf(target(L"empty\\in it")).dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY, 0u);

    std::set<std::wstring> seen;
    for (const RestoreCatalog::Item& item : listed(of)) {
        const std::wstring above = item.path.substr(0, item.path.rfind(L'\\'));
        EXPECT_TRUE(above == sources_.path() || seen.contains(above)) << toUtf8(item.path);
        EXPECT_TRUE(seen.insert(item.path).second) << toUtf8(item.path);
    }
    EXPECT_EQ(seen.size(), items_.size());
    for (const Item& item : items_) {
        EXPECT_TRUE(seen.contains(item.path)) << toUtf8(item.path);
    }
    const auto count = [&](const std::wstring& name) { return listed(of, source(name)).size(); };
    EXPECT_EQ(count(L"a"), 4u);
    EXPECT_EQ(count(L"ab"), 5u);
    EXPECT_EQ(count(L"a.b"), 1u);
    EXPECT_EQ(count(L"b"), 0u);
    EXPECT_EQ(count(L"ab\\" + longName), 1u);
}

TEST_P(StorageContract, ALongListComesInPages) {
    constexpr size_t count = 2 * RestoreCatalog::pageLimit + 1;
    WIN32_FILE_ATTRIBUTE_DATA data{};
    data.dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
    const auto storage = started();
    for (uint32_t i = 1; i <= count; ++i) {
        const std::wstring path = L"C:\\f\\" + std::to_wstring(i);
        ASSERT_TRUE(storage->backup(path.c_str(), data, i, nullptr)) << GetLastError();
    }
    ASSERT_TRUE(storage->end());
    std::set<std::wstring> seen;
    for (const RestoreCatalog::Item& item : listed(instance())) {
        seen.insert(item.path);
    }
    EXPECT_EQ(seen.size(), count);
    RestoreCatalog::Page page;
    EXPECT_TRUE(backend().catalog(stored(instance()), nullptr, nullptr)->list({}, {}, page));
    EXPECT_EQ(page.items.size(), size_t{RestoreCatalog::pageLimit});
}

TEST_P(StorageContract, WhatHasNotChangedIsNotKeptTwice) {
    put(L"changed", noise(1000));
    put(L"gone", noise(2000, 2));
    put(L"stays", noise(size_t{3} * uploadBlockSize, 3));
    const std::string first = complete();
    EXPECT_THAT(sent(), ElementsAre(L"changed", L"gone", L"stays"));
    const uint64_t kept = place_->kept();

    put(L"changed", noise(500, 4));
    put(L"new", noise(100, 5));
    DeleteFileW(source(L"gone").c_str());
    const std::string gone = contents_[L"gone"];
    contents_.erase(L"gone");
    compress_ = true;  // does not concern what is carried over
    const std::string second = complete();
    EXPECT_THAT(sent(), ElementsAre(L"changed", L"new"));
    EXPECT_LT(place_->kept() - kept, 2000u);
    expectComesBack(second);
    // What is carried over once is carried over again.
    const std::string third = complete();
    EXPECT_THAT(sent(), IsEmpty());
    expectComesBack(third);
    // A backup stays as it was, whatever came later.
    put(L"changed", noise(1000));
    contents_[L"gone"] = gone;
    contents_.erase(L"new");
    expectComesBack(first);
}

TEST_P(StorageContract, AFailedItemIsRememberedOverAPauseAndSentByTheNextRun) {
    put(L"a", "1");
    put(L"b", "2");
    put(L"c", "3");
    {
        const auto storage = begun();
        ASSERT_TRUE(backup(*storage, L"a"));
        ASSERT_TRUE(MoveFileW(source(L"b").c_str(), target(L"b").c_str()));
        EXPECT_FAILS(ERROR_FILE_NOT_FOUND, backup(*storage, L"b"));
        ASSERT_TRUE(failed_->add(source(L"b").c_str(), ERROR_FILE_NOT_FOUND, "gone"));
    }
    failed_ =
        std::make_unique<FailedItems>(toUtf8(jobFolder(backupJob_)) + "\\" + instance(), record_);
    const auto resumed = started();
    ASSERT_TRUE(backup(*resumed, L"c"));
    ASSERT_TRUE(resumed->end()) << GetLastError();
    EXPECT_EQ(listed(instance()).size(), 2u);

    ASSERT_TRUE(MoveFileW(target(L"b").c_str(), source(L"b").c_str()));
    expectComesBack(complete());
    EXPECT_THAT(sent(), ElementsAre(L"b"));
}

TEST_P(StorageContract, AnItemThatIsWholeAndThenFailsIsSentByTheNextRun) {
    put(L"a", "1");
    const auto storage = begun();
    ASSERT_TRUE(backup(*storage, L"a"));
    ASSERT_TRUE(failed_->add(source(L"a").c_str(), ERROR_SHARING_VIOLATION, ""));
    ASSERT_TRUE(storage->end());
    complete();
    EXPECT_THAT(sent(), ElementsAre(L"a"));
}

// A place that can name what it lacks ends with that as failed, so that the next run sends it.
TEST_P(StorageContract, ARunDoesNotEndWithoutAFileOfItsListUnnoticed) {
    put(L"a", "1");
    put(L"b", "2");
    const auto storage = begun();
    ASSERT_TRUE(backup(*storage, L"a"));
    if (place_->namesWhatIsMissing()) {
        EXPECT_TRUE(storage->end()) << GetLastError();
        complete();
        EXPECT_THAT(sent(), ElementsAre(L"b"));
        return;
    }
    EXPECT_FAILS(place_->wrongState(), storage->end());
    EXPECT_FAILS(place_->wrongState(), restoring(instance())->start());
    ASSERT_TRUE(backup(*storage, L"b"));
    EXPECT_TRUE(storage->end()) << GetLastError();
    expectComesBack(instance());
}

TEST_P(StorageContract, AnInterruptedItemGoesOnAtTheRecordedBlock) {
    constexpr uint32_t blocks = 5;
    const size_t size = blocks * uploadBlockSize - 1;  // its package fills the last block
    put(L"a", "before it");
    put(L"file", noise(size));
    enum class Change { none, content, contentOnly };
    struct Row {
        const char* name;
        uint32_t recorded;
        Change change;
        uint32_t sent;
    };
    const Row rows[] = {{"in the middle", 2, Change::none, 3},
                        {"all there", blocks, Change::none, 0},
                        {"nothing recorded", 0, Change::none, blocks},
                        {"another content of the same size", 3, Change::content, blocks},
                        {"and of the same time", 3, Change::contentOnly, blocks}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        beginRun();
        backupJob_ = newJob();
        ASSERT_TRUE(check());
        {
            const auto storage = started();
            ASSERT_TRUE(backupAll(*storage)) << GetLastError();
            EXPECT_EQ(record_.acceptedBlocks, blocks);
        }
        // The process was killed before it took down how far it had come.
        record_.acceptedBlocks = row.recorded;
        if (row.change != Change::none) {
            const WIN32_FILE_ATTRIBUTE_DATA before = dataOf(source(L"file"));
            put(L"file", noise(size, 7 + row.recorded + static_cast<unsigned>(row.change)));
            if (row.change == Change::contentOnly) {
                setTime(L"file", before.ftLastWriteTime);
            }
        }
        record_.transferred = 0;
        standAt(2);
        const auto storage = started();
        ASSERT_TRUE(backup(*storage, L"file")) << GetLastError();
        EXPECT_EQ(record_.transferred, uint64_t{row.sent} * uploadBlockSize);
        EXPECT_EQ(record_.acceptedBlocks, blocks);
        ASSERT_TRUE(storage->end()) << GetLastError();
        // Its time is that of the list, so that only the content is compared.
        const auto restore = restoring(instance());
        ASSERT_TRUE(restore->start());
        ASSERT_TRUE(restore->restoreFile(source(L"file").c_str(), target(L"file").c_str(), 1, true))
            << GetLastError();
        EXPECT_TRUE(fileContent(target(L"file")) == contents_[L"file"]);
    }
}

TEST_P(StorageContract, AStopMakesAnItemFailAndTheNextRunTakesItUp) {
    put(L"a", "1");
    put(L"b", noise(3 << 20));
    {
        const auto storage = begun();
        ASSERT_TRUE(backup(*storage, L"a"));
        stop_.set();
        EXPECT_FAILS(ERROR_CANCELLED, backup(*storage, L"b"));
    }
    stop_.reset();
    {
        const auto storage = started();
        ASSERT_TRUE(backup(*storage, L"b")) << GetLastError();
        ASSERT_TRUE(storage->end()) << GetLastError();
    }
    expectComesBack(instance());
    // A restore heeds it as well, and takes nothing away.
    const auto restore = restoring(instance());
    ASSERT_TRUE(restore->start());
    stop_.set();
    EXPECT_FAILS(ERROR_CANCELLED,
                 restore->restoreFile(source(L"b").c_str(), target(L"b").c_str(), 1, true));
    EXPECT_TRUE(fileContent(target(L"b")) == contents_[L"b"]);
    stop_.reset();
    EXPECT_TRUE(restore->restoreFile(source(L"b").c_str(), target(L"b").c_str(), 1, true));
}

TEST_P(StorageContract, WhatWindowsCallsCancelledIsNoStop) {
    put(L"a", "1");
    const std::string of = complete();
    put(L"a", "2");
    const auto storage = begun();
    const auto restore = restoring(of);
    ASSERT_TRUE(restore->start());
    const auto backUp = [&] { return backup(*storage, L"a"); };
    const auto bringBack = [&] {
        return restore->restoreFile(source(L"a").c_str(), target(L"a").c_str(), 1, true);
    };
    // At last the stop has been taken back.
    for (const bool stopped : {false, true, false}) {
        SCOPED_TRACE(stopped);
        if (stopped) {
            stop_.set();
        } else {
            stop_.reset();
        }
        const DWORD error = stopped ? ERROR_CANCELLED : ERROR_OPERATION_ABORTED;
        {
            const FailingOpen cloud(source(L"a"), ERROR_CANCELLED);
            EXPECT_FAILS(error, backUp());
        }
        const FailingOpen cloud(target_.path() + L"\\~", ERROR_CANCELLED);
        EXPECT_FAILS(error, bringBack());
    }
    EXPECT_TRUE(backUp()) << GetLastError();
    EXPECT_TRUE(bringBack()) << GetLastError();
}

TEST_P(StorageContract, ARunMayBeStartedAndEndedAgain) {
    put(L"a", "1");
    put(L"b", "2");
    put(L"c fails", "3");
    {
        const auto storage = begun();
        EXPECT_TRUE(storage->start());
        ASSERT_TRUE(backup(*storage, L"a"));
    }
    {
        const auto storage = started();
        ASSERT_TRUE(backup(*storage, L"b"));
        ASSERT_TRUE(failed_->add(source(L"c fails").c_str(), ERROR_SHARING_VIOLATION, ""));
        ASSERT_TRUE(storage->end());
        EXPECT_TRUE(storage->end());
    }
    const auto storage = started();
    EXPECT_TRUE(storage->end()) << GetLastError();
    // But it stays what it is.
    EXPECT_FAILS(place_->wrongState(), backup(*storage, L"a"));
    EXPECT_FAILS(place_->wrongState(), storage->cancel());
    EXPECT_FAILS(place_->wrongState(), check());
    contents_.erase(L"c fails");
    expectComesBack(instance());
}

TEST_P(StorageContract, ACancelledRunLeavesNothing) {
    put(L"a", noise(size_t{3} * uploadBlockSize));
    const uint64_t kept = place_->kept();
    {
        const auto storage = begun();
        ASSERT_TRUE(backupAll(*storage));
        EXPECT_GT(place_->kept(), kept);
        EXPECT_TRUE(storage->cancel()) << GetLastError();
    }
    EXPECT_EQ(place_->kept(), kept);
    EXPECT_TRUE(backend().backup(run())->cancel()) << GetLastError();
    EXPECT_FALSE(restoring(instance())->start());
    complete();
    EXPECT_THAT(sent(), ElementsAre(L"a"));
}

TEST_P(StorageContract, AnEmptyListMakesAnEmptyBackup) {
    expectComesBack(complete());
    EXPECT_THAT(listed(instance()), IsEmpty());
    put(L"a", "1");
    expectComesBack(complete());
}

TEST_P(StorageContract, WhatCannotBeRestoredLeavesTheTargetAlone) {
    compress_ = true;
    put(L"a", noise(1000));
    put(L"b", noise(1000, 2));
    const std::string of = complete();
    const std::wstring from = source(L"a");
    const std::wstring to = target(L"a");
    ASSERT_TRUE(write(to, "old"));
    const auto restore = [&](bool replace) {
        const auto storage = restoring(of);
        return storage->start() && storage->restoreFile(from.c_str(), to.c_str(), 1, replace);
    };
    EXPECT_FAILS(ERROR_FILE_EXISTS, restore(false));
    EXPECT_EQ(fileContent(to), "old");

    key_.key[0] ^= 1;
    EXPECT_FALSE(restore(true)) << "a wrong key";
    EXPECT_EQ(fileContent(to), "old");
    key_.key[0] ^= 1;

    place_->damage(stored(of));
    // A service that keeps digests notices it first.
    EXPECT_FALSE(restore(true)) << "a damaged package";
    EXPECT_THAT(GetLastError(), testing::AnyOf(DWORD{ERROR_INVALID_DATA}, DWORD{errorLostBytes}));
    EXPECT_EQ(fileContent(to), "old");
    EXPECT_EQ(entriesOf(target_.path()), 1u);
    // The others are as good as before.
    const auto storage = restoring(of);
    ASSERT_TRUE(storage->start());
    EXPECT_TRUE(storage->restoreFile(source(L"b").c_str(), target(L"b").c_str(), 2, false))
        << GetLastError();
    EXPECT_TRUE(fileContent(target(L"b")) == contents_[L"b"]);
    EXPECT_FALSE(storage->restoreFile(source(L"never").c_str(), target(L"x").c_str(), 3, false));
}

TEST_P(StorageContract, WhatIsNotThereIsNotRestored) {
    const std::string unknown = uuid();
    EXPECT_FALSE(restoring(unknown)->start());
    RestoreCatalog::Page page;
    EXPECT_FALSE(backend().catalog(stored(unknown), nullptr, nullptr)->list({}, {}, page));
}

std::vector<NamedPlace> places() {
    const char* const server = std::getenv("DORVO_CONTRACT_SERVER");
    return {server == nullptr ? localPlace() : webPlace(server)};
}

INSTANTIATE_TEST_SUITE_P(BackEnd, StorageContract, testing::ValuesIn(places()),
                         [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace dorvo::test
