// What local storage does about files that were cut off, changed or lost.
#include "storage/local/localindexreader.h"
#include "storage/local/localinstances.h"
#include "storage/local/localinstancewriter.h"
#include "storage/local/localstoragetest.h"
#include "support/fails_with.h"

namespace dorvo {
namespace {

// A process may be killed in the middle of a record, at any byte.
TEST_F(LocalStorageTest, ATornEndOfAnIndexIsCutOffAndWrittenAnew) {
    const std::wstring a = makeFile(L"a", 48);
    const std::wstring b = makeFile(L"b", size_t{2} * uploadBlockSize, 'y');
    const std::wstring index = place().index(instance());
    uint64_t before = 0;
    {
        const auto made = started();
        ASSERT_TRUE(backup(*made, a));
        before = sizeOfFile(index);
        ASSERT_TRUE(backup(*made, b, 2));
    }
    const uint64_t whole = sizeOfFile(index);
    for (const uint64_t size : {whole - 1, before + 97, before + 4, before + 1, before}) {
        SCOPED_TRACE(size);
        cut(index, size);
        const auto made = started();
        EXPECT_EQ(sizeOfFile(index), before);
        // Its blocks are there.
        record_.transferred = 0;
        ASSERT_TRUE(backup(*made, b, 2));
        EXPECT_EQ(record_.transferred, 0u);
        EXPECT_EQ(sizeOfFile(index), whole);
    }
    EXPECT_TRUE(started()->end());
    EXPECT_TRUE(list(page_));
    EXPECT_EQ(page_.items.size(), 2u);
}

TEST_F(LocalStorageTest, ARestoreGoesOnBehindTheBlocksThatAreThere) {
    constexpr uint32_t blocks = 4;
    const std::wstring path = complete(blocks * uploadBlockSize);
    const std::wstring target = folder_.path() + L"\\target";
    std::wstring package;
    jobDirectory("r", package);
    package += L"\\tmp";
    createDirectories(package);
    package += L"\\1";
    struct Row {
        const char* name;
        uint32_t item;
        uint32_t recorded;
        std::function<void()> spoil;
        uint32_t copied;
    };
    const Row rows[] = {
        {"in the middle", 1, 2, [] {}, 2},
        {"all there", 1, blocks, [] {}, 0},
        {"another item's", 9, 2, [] {}, blocks},
        {"more there than the package", 1, 2, [&] { cut(package, blocks * uploadBlockSize + 1); },
         2},
        {"less there than on record", 1, 2, [&] { cut(package, size_t{2} * uploadBlockSize - 1); },
         blocks},
        {"bytes lost in a power cut", 1, 2, [&] { flip(package, 5000); }, 2 + blocks},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const auto reading = restore();
        ASSERT_TRUE(reading->start());
        write(target, "old");
        EXPECT_FAILS(ERROR_FILE_EXISTS,
                     reading->restoreFile(path.c_str(), target.c_str(), 1, false));
        ASSERT_EQ(sizeOfFile(package), blocks * uploadBlockSize);
        restored_.itemNumber = row.item;
        restored_.acceptedBlocks = row.recorded;
        restored_.transferred = 0;
        row.spoil();
        EXPECT_TRUE(reading->restoreFile(path.c_str(), target.c_str(), 1, true)) << GetLastError();
        EXPECT_EQ(restored_.transferred, uint64_t{row.copied} * uploadBlockSize);
        EXPECT_EQ(contentOf(target), contentOf(path));
        EXPECT_EQ(GetFileAttributesW(package.c_str()), INVALID_FILE_ATTRIBUTES);
    }
}

// A power cut may take bytes that were not on the disk yet.
TEST_F(LocalStorageTest, ARunWhosePackagesWereLostDoesNotGoOn) {
    const std::wstring path = makeFile(L"file", uploadBlockSize);
    for (const bool shorter : {true, false}) {
        SCOPED_TRACE(shorter);
        begin(shorter ? 7 : 8);
        ASSERT_TRUE(backup(*started(), path));
        const std::wstring packages = place().packages(instance());
        if (shorter) {
            cut(packages, 100);
        } else {
            flip(packages, 4096);
        }
        const auto made = storage();
        EXPECT_FAILS(ERROR_INVALID_DATA, made->start());
        EXPECT_TRUE(made->cancel());
    }
}

TEST_F(LocalStorageTest, ARunThatLostAnItemDoesNotGoOn) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    data.dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
    const std::wstring index = place().index(instance());
    uint64_t one = 0;
    {
        const auto made = started();
        ASSERT_TRUE(made->backup(L"C:\\a", data, 1, nullptr));
        one = sizeOfFile(index);
        ASSERT_TRUE(made->backup(L"C:\\b", data, 2, nullptr));
    }
    cut(index, one);
    const auto made = started();
    EXPECT_FAILS(ERROR_INVALID_DATA, made->end());
    EXPECT_FAILS(ERROR_INVALID_DATA, made->backup(L"C:\\c", data, 3, nullptr));
    // The item in progress may be repeated, and one that failed is not missed.
    EXPECT_TRUE(made->backup(L"C:\\b", data, 2, nullptr));
    ASSERT_TRUE(made->recordError(L"C:\\c", 5, ""));
    EXPECT_TRUE(made->backup(L"C:\\d", data, 4, nullptr));
    EXPECT_TRUE(made->end()) << GetLastError();
}

// The activity record may be older than the index after a power cut.
TEST_F(LocalStorageTest, WhatTheRunHasNoRecordOfIsStoredOnce) {
    const std::wstring paths[] = {makeFile(L"a", 48), makeFile(L"b", 64), makeFile(L"c", 80)};
    {
        const auto made = started();
        for (uint32_t i = 0; i < 3; ++i) {
            ASSERT_TRUE(backup(*made, paths[i], i + 1));
        }
    }
    const auto made = started();
    ASSERT_TRUE(backup(*made, paths[1], 2));
    ASSERT_TRUE(backup(*made, paths[2], 3));
    ASSERT_TRUE(made->end()) << GetLastError();
    ASSERT_TRUE(list(page_));
    EXPECT_EQ(page_.items.size(), 3u);
    EXPECT_EQ(sizeOfFile(place().packages(instance())), 48u + 64u + 80u);
}

TEST_F(LocalStorageTest, WhatWasCarriedOverMustBeThereWhenTheRunGoesOn) {
    const std::wstring path = complete();
    begin(2);
    bool send = true;
    ASSERT_TRUE(check(path, send));
    EXPECT_FALSE(send);
    started();
    cut(place().index(instance()), LocalIndexReader::begin());
    EXPECT_FAILS(ERROR_INVALID_DATA, storage()->start());
    // Nor does it go on when all of its folder was deleted.
    record_.unchangedSize = 47;
    ASSERT_TRUE(rm_rf(place().instance(instance()), true));
    EXPECT_FAILS(ERROR_INVALID_DATA, storage()->start());
}

TEST_F(LocalStorageTest, DamageToACompletedBackupIsAClearError) {
    const std::wstring path = complete();
    const LocalPlace where = place();
    const std::string base = instance();
    const std::wstring index = where.index(base);
    const uint64_t size = sizeOfFile(index);
    const auto expectDamaged = [&] {
        EXPECT_FAILS(ERROR_INVALID_DATA, list(page_));
        const auto reading = restore();
        EXPECT_FAILS(ERROR_INVALID_DATA,
                     reading->start() && reading->restoreFile(path.c_str(), path.c_str(), 1, true));
        // Nor is it a base to build on, but the job can still be backed up.
        begin(2);
        bool send = false;
        EXPECT_TRUE(check(path, send)) << GetLastError();
        EXPECT_TRUE(send);
        begin(1);
    };
    for (const uint64_t offset : {uint64_t{0}, uint64_t{8}, uint64_t{11}, uint64_t{12}, size - 1}) {
        SCOPED_TRACE(offset);
        flip(index, offset);
        expectDamaged();
        flip(index, offset);
    }
    ASSERT_TRUE(list(page_));
    cut(index, LocalIndexReader::begin());
    expectDamaged();
    // Without a sensible document it is no base, and not listed.
    write(where.document(base), "{}");
    EXPECT_FAILS(ERROR_INVALID_DATA, restore()->start());
    std::vector<WebInstance> instances;
    EXPECT_TRUE(LocalInstances::list(location_, {}, {}, instances));
    EXPECT_TRUE(instances.empty());
    // It may have been completed: nothing drops it or begins it anew.
    bool send = false;
    EXPECT_FAILS(ERROR_INVALID_DATA, storage()->cancel());
    EXPECT_FAILS(ERROR_INVALID_DATA, check(path, send));
    EXPECT_EQ(sizeOfFile(where.packages(base)), 48u);
}

// What an index says of packages is only believed as far as there are bytes.
TEST_F(LocalStorageTest, APackageThatIsNotThereIsNeitherReadNorCarriedOver) {
    const std::wstring path = complete(size_t{3} * uploadBlockSize);
    const std::wstring packages = place().packages(instance());
    bool send = false;
    const auto sendsAnew = [&] {
        begin(2);
        EXPECT_TRUE(check(path, send)) << GetLastError();
        begin(1);
        return send;
    };
    EXPECT_FALSE(sendsAnew());
    cut(packages, size_t{3} * uploadBlockSize - 1);
    EXPECT_TRUE(sendsAnew());
    const auto reading = restore();
    ASSERT_TRUE(reading->start());
    EXPECT_FAILS(ERROR_INVALID_DATA, reading->restoreFile(path.c_str(), path.c_str(), 1, true));
}

// The records that check points make are nobody's business.
TEST_F(LocalStorageTest, AfterACheckPointLessIsToBeChecked) {
    const std::wstring path = makeFile(L"file", 48);
    {
        const auto made = started();
        ASSERT_TRUE(backup(*made, path));
    }
    {
        LocalInstanceDocument document;
        const auto writer = LocalInstanceWriter::open(place(), instance(), document);
        ASSERT_TRUE(writer && writer->load() && writer->checkpoint());
    }
    flip(place().packages(instance()), 0);
    const auto made = started();
    const std::wstring other = makeFile(L"other", 64);
    ASSERT_TRUE(backup(*made, other, 2));
    ASSERT_TRUE(made->end());
    ASSERT_TRUE(list(page_));
    EXPECT_EQ(page_.items.size(), 2u);
    EXPECT_EQ(sizeOfFile(place().packages(instance())), 48u + 64u);
}

}  // namespace
}  // namespace dorvo
