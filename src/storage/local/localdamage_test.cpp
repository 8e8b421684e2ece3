// What local storage does about files that were cut off, changed or lost.
#include "settings/storefile.h"
#include "storage/itemtemppath.h"
#include "storage/local/localindexreader.h"
#include "storage/local/localinstancewriter.h"
#include "storage/local/localstoragetest.h"
#include "storage/wire_time.h"
#include "support/fails_with.h"

namespace dorvo {
namespace {

// A process may be killed in the middle of a record, at any byte.
TEST_F(LocalStorageTest, ATornEndOfAnIndexIsCutOffAndWrittenAnew) {
    const std::wstring a = makeFile(L"a", 48);
    const std::wstring b = makeFile(L"b", size_t{2} * uploadBlockSize, 'y');
    const std::wstring index = place().index(instance());
    writeList({a, b});
    uint64_t before = 0;
    {
        const auto made = started();
        ASSERT_TRUE(backup(*made, a));
        before = sizeOfFile(index);
        ASSERT_TRUE(backup(*made, b, 2));
    }
    const uint64_t whole = sizeOfFile(index);
    standAt(2);
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
    // A block that a power cut has spoilt is written anew.
    cut(index, before);
    flip(place().packages(instance()), 48 + 5000);
    {
        const auto made = started();
        ASSERT_TRUE(backup(*made, b, 2));
        EXPECT_NE(record_.transferred, 0u);
    }
    standAt(3);
    EXPECT_TRUE(started()->end());
    EXPECT_TRUE(list(page_));
    EXPECT_EQ(page_.items.size(), 2u);
}

// All of a package is checked before it is decoded, what an earlier run has received as well.
TEST_F(LocalStorageTest, ARestoreGoesOnBehindTheBlocksThatAreThere) {
    constexpr uint32_t blocks = 4;
    const std::wstring path = complete(size_t{blocks} * uploadBlockSize);
    const std::wstring target = folder_.path() + L"\\target";
    createDirectories(itemTempFolder("r"));
    const std::wstring package = itemTempPath(itemTempFolder("r"), 1);
    const std::tuple<uint32_t, bool, uint32_t> rows[] = {
        {2, false, 2}, {blocks, false, 0}, {2, true, 2 + blocks}};
    for (const auto& [recorded, lost, copied] : rows) {
        SCOPED_TRACE(copied);
        const auto reading = restore();
        ASSERT_TRUE(reading->start());
        write(target, "old");
        EXPECT_FAILS(ERROR_FILE_EXISTS,
                     reading->restoreFile(path.c_str(), target.c_str(), 1, false));
        restored_.acceptedBlocks = recorded;
        restored_.transferred = 0;
        if (lost) {
            flip(package, 5000);
        }
        EXPECT_TRUE(reading->restoreFile(path.c_str(), target.c_str(), 1, true)) << GetLastError();
        EXPECT_EQ(restored_.transferred, uint64_t{copied} * uploadBlockSize);
        EXPECT_EQ(contentOf(target), contentOf(path));
    }
}

// A power cut may take bytes that were not on the disk yet.
TEST_F(LocalStorageTest, ARunWhosePackagesWereLostDoesNotGoOn) {
    const std::wstring path = makeFile(L"file", uploadBlockSize);
    for (const bool shorter : {true, false}) {
        SCOPED_TRACE(shorter);
        begin(shorter ? 7 : 8);
        writeList({path});
        ASSERT_TRUE(backup(*started(), path));
        standAt(2);
        const std::wstring packages = place().packages(instance());
        if (shorter) {
            cut(packages, 100);
        } else {
            flip(packages, 4096);
        }
        const auto made = storage();
        EXPECT_FAILS(ERROR_INVALID_STATE, made->start());
        EXPECT_TRUE(made->cancel());
    }
}

// Nothing but an error of its own excuses an item of the list: not that of a folder which could not
// be listed, and not those of items that the run has met since.
TEST_F(LocalStorageTest, ARunThatLostAnItemDoesNotGoOn) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    data.dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
    const std::vector<std::wstring> paths = {L"C:\\a", L"C:\\b", L"C:\\c", L"C:\\d"};
    struct Row {
        const char* name;
        size_t kept;  // of a, b and c in the index
        std::vector<const wchar_t*> failed;
        uint32_t next;  // where the run stands; 5: at the end of its list, 6: nowhere in it
        bool goesOn;
        const wchar_t* third = L"C:\\c";  // of the list that is there now, and what all of it are
        DWORD kind = FILE_ATTRIBUTE_DIRECTORY;
    };
    const Row rows[] = {
        {"all there", 3, {}, 4, true},
        {"of another item", 3, {}, 4, false, L"C:\\x"},
        {"of files", 3, {}, 4, false, L"C:\\c", FILE_ATTRIBUTE_NORMAL},
        {"the item in progress", 3, {}, 3, true},
        {"older than the index", 3, {}, 2, true},
        {"lost", 2, {}, 4, false},
        {"lost, others failed", 2, {L"C:\\x", L"C:\\d", L"C:\\d\\e"}, 4, false},
        {"failed", 2, {L"C:\\x", L"C:\\c\\"}, 4, true},
        {"all lost", 0, {L"C:\\x", L"C:\\y", L"C:\\z"}, 4, false},
        {"lost at the end", 3, {L"C:\\x"}, 5, false},
        {"failed at the end", 3, {L"C:\\d"}, 5, true},
        {"another list", 3, {L"C:\\d"}, 6, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        begin(static_cast<uint8_t>(2 + (&row - rows)));
        writeList(paths, FILE_ATTRIBUTE_DIRECTORY);
        failed_->clear();
        const std::wstring index = place().index(instance());
        uint64_t end = LocalIndexReader::begin();
        {
            const auto made = started();
            for (uint32_t i = 0; i < 3; ++i) {
                ASSERT_TRUE(made->backup(paths[i].c_str(), data, i + 1, nullptr));
                end = i < row.kept ? sizeOfFile(index) : end;
            }
        }
        cut(index, end);
        for (const wchar_t* path : row.failed) {
            ASSERT_TRUE(failed_->add(path, ERROR_ACCESS_DENIED, ""));
        }
        writeList({paths[0], paths[1], row.third, paths[3]}, row.kind);
        standAt(std::min(row.next, 5u));
        record_.sourcePosition += row.next == 6 ? 3 : 0;
        const auto made = storage();
        if (!row.goesOn) {
            EXPECT_FAILS(ERROR_INVALID_STATE, made->start());
            continue;
        }
        ASSERT_TRUE(made->start()) << GetLastError();
        for (uint32_t i = row.next; i <= 4; ++i) {
            ASSERT_TRUE(made->backup(paths[i - 1].c_str(), data, i, nullptr));
        }
        ASSERT_TRUE(made->end()) << GetLastError();
        ASSERT_TRUE(list(page_));
        EXPECT_EQ(page_.items.size(), row.next == 5 || row.kept < 3 ? 3u : 4u);
    }
}

TEST_F(LocalStorageTest, WhatIsAwaitedMustHaveComeBeforeTheEnd) {
    const std::wstring path = makeFile(L"a file with a long, long name", 48);
    const std::wstring other = makeFile(L"b", 48);
    bool send = false;
    ASSERT_TRUE(check(path, send));
    started();
    // A new list: nothing stays of the old one.
    ASSERT_TRUE(check(other, send));
    EXPECT_FALSE(fileExists(place().document(instance())));
    {
        const auto made = started();
        EXPECT_FAILS(ERROR_INVALID_STATE, made->end());
        ASSERT_TRUE(backup(*made, other));
        EXPECT_TRUE(made->end()) << GetLastError();
    }
    EXPECT_FALSE(fileExists(place().awaited(instance())));
    begin(2);
    ASSERT_TRUE(check(path, send));
    started();
    ASSERT_TRUE(DeleteFileW(place().awaited(instance()).c_str()));
    EXPECT_FAILS(ERROR_INVALID_STATE, storage()->start());
}

// The activity record may be older than the index after a power cut.
TEST_F(LocalStorageTest, WhatTheRunHasNoRecordOfIsStoredOnce) {
    const std::wstring paths[] = {makeFile(L"a", 48), makeFile(L"b", 64), makeFile(L"c", 80)};
    writeList({std::begin(paths), std::end(paths)});
    {
        const auto made = started();
        for (uint32_t i = 0; i < 3; ++i) {
            ASSERT_TRUE(backup(*made, paths[i], i + 1));
        }
    }
    standAt(2);
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
    EXPECT_FAILS(ERROR_INVALID_STATE, storage()->start());
    // Nor does it go on when all of its folder was deleted.
    record_.unchangedSize = 47;
    ASSERT_TRUE(rm_rf(place().instance(instance()), true));
    EXPECT_FAILS(ERROR_INVALID_STATE, storage()->start());
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
    // Without a sensible document it is no base, and listed as what it is.
    write(where.document(base), "{}");
    EXPECT_FAILS(ERROR_INVALID_DATA, restore()->start());
    std::vector<StoredInstance> instances;
    EXPECT_TRUE(backend({}).runs({}, {}, instances));
    ASSERT_EQ(instances.size(), 1u);
    EXPECT_EQ(instances[0].state, "damaged");
    EXPECT_EQ(instances[0].jobInstanceId, base);
    EXPECT_EQ(instances[0].endTime,
              wire_time(toTicks(attributes(where.document(base)).ftLastWriteTime)));
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

// Nor is a folder made for a file that is not there.
TEST_F(LocalStorageTest, ADamagedIndexIsNoDamageOfThePackageBefore) {
    const std::wstring good = makeFile(L"good", 64, 'y');
    const std::wstring between = makeFile(L"between", 48);
    const std::wstring bad = makeFile(L"bad", 48);
    WIN32_FILE_ATTRIBUTE_DATA folder{};
    folder.dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
    {
        const auto made = started();
        ASSERT_TRUE(backup(*made, good, 1));
        // More than is read at once lies between.
        for (uint32_t number = 2; number < 250; ++number) {
            const std::wstring path = L"C:\\" + std::wstring(200, L'x') + std::to_wstring(number);
            ASSERT_TRUE(made->backup(path.c_str(), folder, number, nullptr));
        }
        ASSERT_TRUE(backup(*made, between, 250) && backup(*made, bad, 251) && made->end());
    }
    createDirectories(itemTempFolder("r"));
    const std::wstring target = folder_.path() + L"\\made\\target";
    auto reading = restore();
    ASSERT_TRUE(reading->start());
    EXPECT_FAILS(ERROR_FILE_NOT_FOUND, reading->restoreFile(L"C:\\never", target.c_str(), 1, true));
    EXPECT_FALSE(fileExists(folder_.path() + L"\\made"));
    reading.reset();
    flip(place().index(instance()), sizeOfFile(place().index(instance())) - 1);
    reading = restore();
    ASSERT_TRUE(reading->start());
    ASSERT_TRUE(reading->restoreFile(good.c_str(), target.c_str(), 1, true)) << GetLastError();
    EXPECT_FAILS(ERROR_INVALID_DATA, reading->restoreFile(bad.c_str(), target.c_str(), 251, true));
    EXPECT_FALSE(fileExists(place().damaged(instance())));
}

// Otherwise it would be carried over from backup to backup.
TEST_F(LocalStorageTest, APackageThatARestoreHasFoundDamagedIsStoredAgain) {
    const std::wstring good = makeFile(L"good", 64, 'y');
    const std::wstring bad = makeFile(L"bad", 48);
    {
        const auto made = started();
        ASSERT_TRUE(backup(*made, good, 1) && backup(*made, bad, 2) && made->end());
    }
    const std::wstring note = place().damaged(instance());
    const std::wstring target = folder_.path() + L"\\target";
    createDirectories(itemTempFolder("r"));
    const auto restored = [&](const std::wstring& path) {
        const auto reading = restore();
        return reading->start() && reading->restoreFile(path.c_str(), target.c_str(), 1, true);
    };
    const auto sent = [&](uint8_t run) {
        begin(run);
        std::string answer;
        for (const std::wstring& path : {good, bad}) {
            bool send = false;
            EXPECT_TRUE(check(path, send)) << GetLastError();
            answer += send ? '1' : '0';
        }
        begin(1);
        return answer;
    };
    EXPECT_EQ(sent(2), "00");
    flip(place().packages(instance()), 64);
    EXPECT_FAILS(ERROR_INVALID_DATA, restored(bad));
    EXPECT_TRUE(restored(good));
    const uint64_t noted = sizeOfFile(note);
    EXPECT_EQ(sent(2), "01");
    // Another restore notes nothing new, unless the note was torn.
    EXPECT_FAILS(ERROR_INVALID_DATA, restored(bad));
    EXPECT_EQ(sizeOfFile(note), noted);
    for (const uint64_t torn : {noted - 1, uint64_t{3}}) {
        cut(note, torn);
        EXPECT_EQ(sent(2), "00");
        EXPECT_FAILS(ERROR_INVALID_DATA, restored(bad));
        EXPECT_EQ(sizeOfFile(note), noted);
        EXPECT_EQ(sent(2), "01");
    }
    begin(2);
    bool send = false;
    ASSERT_TRUE(check(bad, send));
    {
        const auto made = started();
        ASSERT_TRUE(backup(*made, bad, 1) && made->end()) << GetLastError();
    }
    EXPECT_TRUE(restored(bad));
    begin(3);
    EXPECT_TRUE(check(bad, send));
    EXPECT_FALSE(send);
}

// The records that check points make are nobody's business.
TEST_F(LocalStorageTest, AfterACheckPointLessIsToBeChecked) {
    const std::wstring path = makeFile(L"file", 48);
    const std::wstring other = makeFile(L"other", 64);
    writeList({path, other});
    {
        const auto made = started();
        ASSERT_TRUE(backup(*made, path));
    }
    standAt(2);
    {
        LocalInstanceDocument document;
        const auto writer = LocalInstanceWriter::open(place(), instance(), document);
        ASSERT_TRUE(writer && writer->load() && writer->checkpoint());
    }
    flip(place().packages(instance()), 0);
    const auto made = started();
    ASSERT_TRUE(backup(*made, other, 2));
    ASSERT_TRUE(made->end());
    ASSERT_TRUE(list(page_));
    EXPECT_EQ(page_.items.size(), 2u);
    EXPECT_EQ(sizeOfFile(place().packages(instance())), 48u + 64u);
}

}  // namespace
}  // namespace dorvo
