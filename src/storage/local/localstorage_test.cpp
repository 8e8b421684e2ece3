// What the contract suite of all back ends does not see: the folder itself, and who may use it.
#include "storage/local/localstoragetest.h"

#include <algorithm>
#include <utility>

#include "base/error_codes.h"
#include "base/sharing_retry.h"
#include "settings/storefile.h"
#include "storage/local/localerror.h"
#include "support/fails_with.h"

namespace dorvo {
namespace {

TEST_F(LocalStorageTest, AFolderThatIsGonePausesEveryJob) {
    const std::wstring path = complete();
    begin(2);
    const auto running = started();
    const auto reading = restore();
    const std::wstring away = folder_.path() + L"\\away";
    std::vector<StoredInstance> instances;
    bool send = false;
    const auto expectGone = [](bool done) { EXPECT_FAILS(WSAESTALE, done); };
    ASSERT_TRUE(MoveFileW(location_.c_str(), away.c_str())) << GetLastError();
    expectGone(running->end());
    expectGone(storage()->start());
    expectGone(storage()->cancel());
    expectGone(check(path, send));
    expectGone(reading->start());
    expectGone(list(page_));
    expectGone(backend().runs({}, {}, instances));
    // It never comes to be by itself: it may be a disk's.
    EXPECT_EQ(GetFileAttributesW(location_.c_str()), INVALID_FILE_ATTRIBUTES);
    ASSERT_TRUE(MoveFileW(away.c_str(), location_.c_str()));
    EXPECT_TRUE(running->end()) << GetLastError();
    EXPECT_TRUE(restore()->start()) << GetLastError();
}

// Where a disk is mounted in a folder, the folder is there without the disk, too.
TEST_F(LocalStorageTest, AnEmptyFolderInItsPlaceIsAPlaceThatIsAway) {
    const std::wstring path = complete();
    const std::wstring mark = location_ + L"\\dorvo-backups.txt";
    const std::wstring away = folder_.path() + L"\\away";
    ASSERT_TRUE(DeleteFileW(mark.c_str()));
    EXPECT_TRUE(restore()->start() && list(page_)) << "the job's folder tells as well";
    begin(2);
    started();
    EXPECT_TRUE(fileExists(mark)) << "a place of an older version has got none";
    bool send = false;
    {
        const auto unmounted = [&](const char* what, const std::function<bool()>& call) {
            EXPECT_FAILS(WSAESTALE, call()) << what;
        };
        ASSERT_TRUE(MoveFileW(location_.c_str(), away.c_str()));
        createDirectories(location_);
        UserKey key;
        unmounted("start", [&] { return storage()->start(); });
        unmounted("cancel", [&] { return storage()->cancel(); });
        unmounted("check", [&] { return check(path, send); });
        unmounted("key", [&] { return backend().keyForBackup(task(), key); });
        unmounted("restore", [&] { return restore()->start(); });
        unmounted("key of restore", [&] { return backend("a").keyForRestore(restoreTask(), key); });
        unmounted("list", [&] { return list(page_); });
        std::vector<StoredInstance> instances;
        unmounted("all", [&] { return backend({}).runs({}, {}, instances); });
        EXPECT_TRUE(RemoveDirectoryW(location_.c_str())) << "something was put there";
        ASSERT_TRUE(MoveFileW(away.c_str(), location_.c_str()));
    }
    EXPECT_TRUE(started()->end());
    // The user says that he begins anew, with another disk.
    ASSERT_TRUE(MoveFileW(location_.c_str(), away.c_str()));
    createDirectories(location_);
    write(mark, "");
    begin(3);
    EXPECT_TRUE(check(path, send));
    EXPECT_TRUE(send);
    // Another place is new to the job.
    location_ = folder_.path() + L"\\other";
    createDirectories(location_);
    EXPECT_TRUE(check(path, send));
}

// What was mistyped holds nothing, however long one waits; a disk that was read from comes back.
TEST_F(LocalStorageTest, ARestoreWaitsOnlyForAPlaceThatItKnows) {
    complete();
    const std::wstring away = folder_.path() + L"\\away";
    std::wstring writer;
    std::wstring reader;
    ASSERT_TRUE(jobDirectory(job, writer) && jobDirectory("r", reader));
    createDirectories(reader);
    ASSERT_TRUE(DeleteFileW((writer + L"\\place").c_str()));  // of another machine
    for (const bool known : {false, true}) {
        SCOPED_TRACE(known);
        if (known) {
            ASSERT_TRUE(restore()->start());
        }
        ASSERT_TRUE(MoveFileW(location_.c_str(), away.c_str()));
        createDirectories(location_);
        const DWORD error = known ? DWORD{WSAESTALE} : DWORD{ERROR_NOT_FOUND};
        UserKey key;
        std::vector<StoredInstance> instances;
        EXPECT_FAILS(error, restore()->start());
        EXPECT_FAILS(error, list(page_));
        EXPECT_FAILS(error, backend("a").keyForRestore(restoreTask(), key));
        EXPECT_EQ(backend({}).runs({}, {}, instances), !known);
        ASSERT_TRUE(RemoveDirectoryW(location_.c_str()));
        ASSERT_TRUE(MoveFileW(away.c_str(), location_.c_str()));
    }
    location_ = folder_.path() + L"\\mistyped";
    createDirectories(location_);
    // Nobody can tell which place this job means.
    std::wstring note;
    ASSERT_TRUE(jobDirectory("other", note));
    createDirectories(note);
    note += L"\\place";
    write(note, "D:\\other");
    const FileHandle held(
        CreateFileW(note.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_FAILS(ERROR_NOT_FOUND, restore()->start());
}

// A job must not wait for a mark that was never made; what it cannot read speaks for the place.
TEST_F(LocalStorageTest, APlaceIsRememberedWhenItIsMarked) {
    const std::wstring mark = location_ + L"\\dorvo-backups.txt";
    const std::wstring fresh = mark + L".new";
    createDirectories(fresh);
    started();
    ASSERT_FALSE(fileExists(mark));
    ASSERT_TRUE(rm_rf(place().instance(instance()), true));
    started();
    ASSERT_TRUE(RemoveDirectoryW(fresh.c_str()));
    started();
    ASSERT_TRUE(rm_rf(place().instance(instance()), true) && DeleteFileW(mark.c_str()));
    std::wstring note;
    jobDirectory(job, note);
    const FileHandle held(CreateFileW((note + L"\\place").c_str(), GENERIC_READ, 0, nullptr,
                                      OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(held);
    EXPECT_FAILS(WSAESTALE, storage()->start());
}

// The job may have gone elsewhere since: an empty folder is no proof that a run is not there.
TEST_F(LocalStorageTest, ADropIsToldToThePlaceOnlyWhereItIsThere) {
    struct Row {
        const char* name;
        bool mark;
        bool instance;
        bool told;
    };
    const Row rows[] = {{"empty", false, false, false},
                        {"marked", true, false, true},
                        {"of an older version", false, true, true}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        if (row.mark) {
            write(location_ + L"\\dorvo-backups.txt", "");
        }
        if (row.instance) {
            createDirectories(place().instance(instance()));
        }
        EXPECT_EQ(storage()->cancel(), row.told);
        EXPECT_EQ(GetLastError() == WSAESTALE, !row.told);
        DeleteFileW((location_ + L"\\dorvo-backups.txt").c_str());
    }
}

// What is dropped by halves is no instance any more.
TEST_F(LocalStorageTest, ADropBeginsWithTheDocument) {
    started();
    {
        const FileHandle held(CreateFileW(place().document(instance()).c_str(), GENERIC_READ,
                                          FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
        ASSERT_TRUE(held);
        EXPECT_FALSE(storage()->cancel());
        EXPECT_TRUE(fileExists(place().packages(instance())));
    }
    {
        const FileHandle held(CreateFileW(place().packages(instance()).c_str(), GENERIC_READ,
                                          FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                          OPEN_EXISTING, 0, nullptr));
        ASSERT_TRUE(held);
        EXPECT_FALSE(storage()->cancel());
        EXPECT_TRUE(fileExists(place().packages(instance())));
        EXPECT_FALSE(fileExists(place().document(instance())));
    }
    EXPECT_TRUE(storage()->cancel()) << GetLastError();
    EXPECT_FALSE(fileExists(place().instance(instance())));
}

TEST_F(LocalStorageTest, WhatRunsHaveLeftGoesWithTheNextOne) {
    complete();
    const LocalPlace where = place();
    const std::string base = instance();
    const std::wstring awaited = where.awaited(base);
    // Killed between the document and the list.
    write(awaited, "left");
    EXPECT_TRUE(storage()->start());
    EXPECT_FALSE(fileExists(awaited));
    write(awaited, "left");
    for (const uint8_t run : {uint8_t{2}, uint8_t{3}, uint8_t{4}}) {
        begin(run);
        started();
    }
    EXPECT_FALSE(fileExists(awaited));
    // Only the last of them is there; one at which somebody still works, or of which nobody can
    // tell, stays.
    const auto left = [&] {
        std::string runs;
        const std::wstring runsOfJob = location_ + L"\\" + toWide(machine_) + L"\\" + toWide(job);
        eachFolder(runsOfJob,
                   [&](const std::wstring& name) { runs += toUtf8(name).substr(0, 2) + " "; });
        return runs;
    };
    EXPECT_EQ(left(), "01 04 ");
    const auto other = started();
    begin(5);
    started();
    EXPECT_EQ(left(), "01 04 05 ");
    write(where.document(instance()), "{}");
    begin(6);
    bool send = false;
    EXPECT_TRUE(check(makeFile(L"file", 48), send));
    EXPECT_EQ(left(), "01 04 05 06 ");
}

// When it is mended it must be what it was: the last one, unless a later one was made.
TEST_F(LocalStorageTest, ARunNeverTakesTheSequenceOfADamagedDocument) {
    complete();
    begin(2);
    ASSERT_TRUE(started()->end());
    LocalInstanceDocument document;
    ASSERT_TRUE(place().load(instance(), document));
    document.sequence += 1000;  // of as many runs that were dropped
    ASSERT_TRUE(place().save(document));
    const std::wstring path = place().document(instance());
    const std::string whole = contentOf(path);
    write(path, whole.substr(1));
    begin(3);
    ASSERT_TRUE(started()->end());
    write(path, whole);
    LocalPlace::Newest newest;
    ASSERT_TRUE(place().newest({}, newest));
    EXPECT_EQ(newest.completed.id, instance());
}

TEST_F(LocalStorageTest, AFullDiskAndALostShareCountAsGone) {
    const std::pair<DWORD, DWORD> rows[] = {{ERROR_DISK_FULL, WSAESTALE},
                                            {ERROR_NETNAME_DELETED, WSAESTALE},
                                            {ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED},
                                            {ERROR_CANCELLED, ERROR_CANCELLED}};
    for (const auto& [error, becomes] : rows) {
        SetLastError(error);
        EXPECT_FAILS(becomes, failedIn(location_));
    }
    // The run is dropped for the one, and waits for the other.
    for (const auto& [error, becomes] : {std::pair<DWORD, DWORD>{ERROR_CRC, ERROR_CRC},
                                         {ERROR_INVALID_DATA, ERROR_INVALID_STATE}}) {
        SetLastError(error);
        EXPECT_FAILS(becomes, failedUnfinished());
    }
    // A full disk elsewhere is none of the folder's.
    SetLastError(ERROR_DISK_FULL);
    EXPECT_FAILS(ERROR_DISK_FULL, failedNear(location_));
}

TEST_F(LocalStorageTest, NamesThatWouldLeaveTheFolderAreRefused) {
    const std::wstring location = location_;
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, LocalPlace(location_, "", job).check());
    for (const char* machine : {"..", "a\\b", "a/b", "c:", "con", "dot."}) {
        machine_ = machine;
        EXPECT_FAILS(ERROR_INVALID_PARAMETER, storage()->start()) << machine;
    }
    machine_ = "m";
    for (const wchar_t* relative : {L"", L"backups", L"c:backups"}) {
        location_ = relative;
        EXPECT_FAILS(ERROR_INVALID_PARAMETER, storage()->start()) << toUtf8(relative);
    }
    location_ = location + L"\\";
    std::replace(location_.begin(), location_.end(), L'\\', L'/');
    EXPECT_TRUE(storage()->start()) << GetLastError();
    record_.instanceId.fill(0);
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, storage()->start());
}

TEST_F(LocalStorageTest, OneProcessWritesToAnInstance) {
    const std::wstring path = makeFile(L"file", 48);
    writeList({path});
    bool send = false;
    {
        const auto first = started();
        EXPECT_FAILS(ERROR_SHARING_VIOLATION, storage()->start());
        EXPECT_FAILS(ERROR_SHARING_VIOLATION, check(path, send));
        EXPECT_FAILS(ERROR_SHARING_VIOLATION, storage()->cancel());
        EXPECT_TRUE(backup(*first, path));
    }
    standAt(2);
    EXPECT_TRUE(started()->end());
}

// A scanner, or somebody who copies it: that must not cost the backup.
TEST_F(LocalStorageTest, ADocumentThatIsInUsePausesTheEnd) {
    const std::wstring path = makeFile(L"file", 48);
    writeList({path});
    {
        const auto made = started();
        ASSERT_TRUE(backup(*made, path));
        const FileHandle reader(CreateFileW(place().document(instance()).c_str(), GENERIC_READ,
                                            FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
        ASSERT_TRUE(reader);
        const auto pause = std::exchange(SharingRetry::pause, [](DWORD) {});
        EXPECT_FAILS(WSAESTALE, made->end());
        SharingRetry::pause = pause;
    }
    standAt(2);
    EXPECT_TRUE(started()->end()) << GetLastError();
    EXPECT_TRUE(restore()->start()) << GetLastError();
}

TEST_F(LocalStorageTest, AnotherKeyIsRefusedBeforeAnythingIsMade) {
    const std::wstring path = complete();
    const auto own = restore();
    key_.key[5] ^= 1;
    EXPECT_FAILS(errorKeyForeign, restore()->start());
    begin(2);
    bool send = false;
    EXPECT_FAILS(errorKeyForeign, check(path, send));
    EXPECT_FAILS(errorKeyForeign, storage()->start());
    EXPECT_EQ(GetFileAttributesW(place().instance(instance()).c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(LocalStorageTest, APageIsOnlyAskedForByTheTextOfThePageBefore) {
    complete();
    for (const char* after : {"x", "d", "d7", "f-1", "d9999999999999999999999", "f12x"}) {
        EXPECT_FAILS(ERROR_INVALID_PARAMETER, list(page_, after)) << after;
    }
    EXPECT_FALSE(list(page_, "d12"));  // in the middle of a record
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_DATA});
    EXPECT_TRUE(list(page_, "f99999"));
    EXPECT_TRUE(page_.items.empty());
}

TEST_F(LocalStorageTest, ListsTheBackupsOfAllMachines) {
    complete();
    ASSERT_TRUE(failed_->add(L"C:\\failed", 5, ""));
    begin(2);
    ASSERT_TRUE(started()->end());
    machine_ = "other";
    begin(3);
    started();
    createDirectories(location_ + L"\\other\\j2\\no instance");
    write(location_ + L"\\a file", "");
    std::vector<StoredInstance> instances;
    const auto ids = [&](const char* machine, const char* jobId) {
        EXPECT_TRUE(backend({}).runs(machine, jobId, instances));
        std::string text;
        for (const StoredInstance& found : instances) {
            text += found.jobInstanceId.substr(0, 2) + " " + found.state + " ";
        }
        return text;
    };
    EXPECT_EQ(ids("", ""), "01 completed 02 completed 03 running ");
    EXPECT_EQ(instances[1].machine, "m\u00e4c");
    EXPECT_EQ(instances[1].jobDefinitionId, job);
    EXPECT_EQ(instances[1].user, "alice");
    EXPECT_EQ(instances[1].totalFiles, 2u);
    EXPECT_EQ(instances[1].errors, 1u);
    EXPECT_FALSE(instances[1].startTime.empty());
    EXPECT_FALSE(instances[1].endTime.empty());
    EXPECT_EQ(ids("other", ""), "03 running ");
    EXPECT_EQ(ids("", "j2"), "");
    EXPECT_EQ(ids("never", ""), "");
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, backend({}).runs("..", "", instances));
}

}  // namespace
}  // namespace dorvo
