// What the contract suite of all back ends does not see: the folder itself, and what may happen
// to it.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <memory>

#include "base/key_error.h"
#include "base/local_time.h"
#include "base/uuid.h"
#include "storage/local/localbackupstorage.h"
#include "storage/local/localerror.h"
#include "storage/local/localfile.h"
#include "storage/local/localincrementcheck.h"
#include "storage/local/localindexreader.h"
#include "storage/local/localinstances.h"
#include "storage/local/localinstancewriter.h"
#include "storage/local/localrestorecatalog.h"
#include "storage/local/localrestorestorage.h"
#include "support/log_capture.h"
#include "support/store_test.h"
#include "support/temporary_folder.h"

namespace dorvo {
namespace {

constexpr char job[] = "j1";

class LocalStorageTest : public test::StoreTest {
protected:
    LocalStorageTest() : location_(folder_.path() + L"\\backups") {
        createDirectories(location_);
        std::wstring directory;
        jobDirectory(job, directory);
        createDirectories(directory + L"\\tmp");
        failed_ = std::make_unique<FailedItems>(toUtf8(directory) + "\\errors", record_);
        begin(1);
    }

    void begin(uint8_t run) {
        record_.reset(static_cast<int32_t>(JobState::running), true);
        record_.instanceId.fill(run);
        record_.startTime = localTimeNow();
    }
    std::string instance() const { return localInstanceText(record_.instanceId); }
    LocalPlace place() const { return {location_, machine_, job}; }

    std::unique_ptr<LocalBackupStorage> storage() {
        return std::make_unique<LocalBackupStorage>(LocalBackupStorage::Run{location_,
                                                                            machine_,
                                                                            job,
                                                                            "name",
                                                                            "alice",
                                                                            false,
                                                                            key_,
                                                                            {},
                                                                            {1, 2, 3},
                                                                            &record_,
                                                                            failed_.get(),
                                                                            nullptr});
    }
    std::unique_ptr<LocalBackupStorage> started() {
        auto made = storage();
        EXPECT_TRUE(made->start()) << GetLastError();
        return made;
    }
    std::unique_ptr<LocalRestoreStorage> restore() {
        return std::make_unique<LocalRestoreStorage>(LocalRestoreStorage::Run{location_,
                                                                              "r",
                                                                              "name",
                                                                              machine_,
                                                                              job,
                                                                              instance(),
                                                                              key_,
                                                                              {},
                                                                              &restored_,
                                                                              nullptr,
                                                                              nullptr});
    }
    // A file whose package has the wanted size: a multiple of 16 above 0.
    std::wstring makeFile(const std::wstring& name, size_t packageSize, char content = 'x') {
        const std::wstring path = folder_.path() + L"\\" + name;
        std::ofstream(path.c_str(), std::ios::binary) << std::string(packageSize - 1, content);
        return path;
    }
    static WIN32_FILE_ATTRIBUTE_DATA attributes(const std::wstring& path) {
        WIN32_FILE_ATTRIBUTE_DATA data{};
        GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data);
        return data;
    }
    static bool backup(BackupStorage& storage, const std::wstring& path, uint32_t number = 1) {
        return storage.backup(path.c_str(), attributes(path), number, nullptr);
    }
    // True in `send`: the file is to be sent.
    bool check(const std::wstring& path, bool& send) {
        LocalIncrementCheck check({location_, machine_, job, instance(), key_, {}, nullptr});
        std::vector<bool> answer{false};
        const bool checked =
            check.check({{path, toTicks(attributes(path).ftLastWriteTime)}}, answer);
        send = answer[0];
        return checked;
    }
    // A completed instance with one file.
    std::wstring complete(size_t packageSize = 48) {
        const std::wstring path = makeFile(L"file", packageSize);
        const auto made = started();
        EXPECT_TRUE(backup(*made, path)) << GetLastError();
        EXPECT_TRUE(made->end()) << GetLastError();
        return path;
    }
    // Hands the open file to `change`.
    static void change(const std::wstring& path, const std::function<void(HANDLE)>& change) {
        const FileHandle file(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                          OPEN_EXISTING, 0, nullptr));
        ASSERT_TRUE(file) << GetLastError();
        change(file.get());
    }
    static void flip(const std::wstring& path, uint64_t offset) {
        change(path, [&](HANDLE file) {
            std::byte byte{};
            ASSERT_TRUE(readLocalFile(file, offset, std::span(&byte, 1)));
            byte ^= std::byte{4};
            ASSERT_TRUE(writeLocalFile(file, offset, std::span(&byte, 1)));
        });
    }
    static uint64_t sizeOfFile(const std::wstring& path) {
        const auto data = attributes(path);
        return uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow;
    }
    bool list(RestoreCatalog::Page& page, const std::string& after = {}) {
        return LocalRestoreCatalog({location_, machine_, job, instance(), nullptr})
            .list({}, after, page);
    }

    test::TemporaryFolder folder_{L"local storage"};
    std::wstring location_;
    std::string machine_ = "m\u00e4c";
    std::array<uint8_t, 16> key_{1, 2, 3};
    JobActivity record_{};
    JobActivity restored_{};
    std::unique_ptr<FailedItems> failed_;
    RestoreCatalog::Page page_;
};

TEST_F(LocalStorageTest, AFolderThatIsGonePausesEveryJob) {
    const std::wstring path = complete();
    begin(2);
    const auto running = started();
    const auto reading = restore();
    const std::wstring away = folder_.path() + L"\\away";
    std::vector<WebInstance> instances;
    bool send = false;
    const auto expectGone = [](bool done) {
        EXPECT_FALSE(done);
        EXPECT_EQ(GetLastError(), DWORD{WSAESTALE});
    };
    ASSERT_TRUE(MoveFileW(location_.c_str(), away.c_str())) << GetLastError();
    expectGone(running->end());
    expectGone(storage()->start());
    expectGone(storage()->cancel());
    expectGone(check(path, send));
    expectGone(reading->start());
    expectGone(list(page_));
    expectGone(LocalInstances::list(location_, {}, {}, instances));
    // It never comes to be by itself: it may be a disk's.
    EXPECT_EQ(GetFileAttributesW(location_.c_str()), INVALID_FILE_ATTRIBUTES);
    ASSERT_TRUE(MoveFileW(away.c_str(), location_.c_str()));
    EXPECT_TRUE(running->end()) << GetLastError();
    EXPECT_TRUE(restore()->start()) << GetLastError();
}

TEST_F(LocalStorageTest, AFullDiskAndALostShareCountAsGone) {
    struct Row {
        DWORD error;
        DWORD becomes;
    };
    for (const Row& row :
         {Row{ERROR_DISK_FULL, WSAESTALE}, Row{ERROR_NETNAME_DELETED, WSAESTALE},
          Row{ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED}, Row{ERROR_CANCELLED, ERROR_CANCELLED}}) {
        SetLastError(row.error);
        EXPECT_FALSE(failedIn(location_));
        EXPECT_EQ(GetLastError(), row.becomes);
    }
    // A full disk elsewhere is none of the folder's.
    SetLastError(ERROR_DISK_FULL);
    EXPECT_FALSE(failedNear(location_));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_DISK_FULL});
}

TEST_F(LocalStorageTest, NamesThatWouldLeaveTheFolderAreRefused) {
    const std::wstring location = location_;
    for (const char* machine : {"", "..", "a\\b", "a/b", "c:", "con", "dot."}) {
        machine_ = machine;
        EXPECT_FALSE(storage()->start()) << machine;
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER}) << machine;
    }
    machine_ = "m";
    for (const wchar_t* relative : {L"", L"backups", L"c:backups"}) {
        location_ = relative;
        EXPECT_FALSE(storage()->start()) << toUtf8(relative);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER}) << toUtf8(relative);
    }
    location_ = location + L"\\";
    std::replace(location_.begin(), location_.end(), L'\\', L'/');
    EXPECT_TRUE(storage()->start()) << GetLastError();
    record_.instanceId.fill(0);
    EXPECT_FALSE(storage()->start());
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(LocalStorageTest, OneProcessWritesToAnInstance) {
    const std::wstring path = makeFile(L"file", 48);
    bool send = false;
    {
        const auto first = started();
        EXPECT_FALSE(storage()->start());
        EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
        EXPECT_FALSE(check(path, send));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
        EXPECT_FALSE(storage()->cancel());
        EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
        EXPECT_TRUE(backup(*first, path));
    }
    EXPECT_TRUE(started()->end());
}

TEST_F(LocalStorageTest, AnotherKeyIsRefusedBeforeAnythingIsMade) {
    const std::wstring path = complete();
    const auto own = restore();
    key_[5] ^= 1;
    EXPECT_FALSE(restore()->start());
    EXPECT_EQ(GetLastError(), DWORD{errorKeyForeign});
    begin(2);
    bool send = false;
    EXPECT_FALSE(check(path, send));
    EXPECT_EQ(GetLastError(), DWORD{errorKeyForeign});
    EXPECT_FALSE(storage()->start());
    EXPECT_EQ(GetLastError(), DWORD{errorKeyForeign});
    EXPECT_EQ(GetFileAttributesW(place().instance(instance()).c_str()), INVALID_FILE_ATTRIBUTES);
}

// A process may be killed in the middle of a record, at any byte.
TEST_F(LocalStorageTest, ATornEndOfAnIndexIsCutOffAndWrittenAnew) {
    const std::wstring a = makeFile(L"a", 48);
    const std::wstring b = makeFile(L"b", 2 * uploadBlockSize, 'y');
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
        change(index, [&](HANDLE file) { ASSERT_TRUE(resizeLocalFile(file, size)); });
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

// A power cut may take bytes that were not on the disk yet.
TEST_F(LocalStorageTest, ARunWhosePackagesWereLostDoesNotGoOn) {
    const std::wstring path = makeFile(L"file", uploadBlockSize);
    for (const bool shorter : {true, false}) {
        SCOPED_TRACE(shorter);
        begin(shorter ? 7 : 8);
        ASSERT_TRUE(backup(*started(), path));
        const std::wstring packages = place().packages(instance());
        if (shorter) {
            change(packages, [](HANDLE file) { ASSERT_TRUE(resizeLocalFile(file, 100)); });
        } else {
            flip(packages, 4096);
        }
        const auto made = storage();
        EXPECT_FALSE(made->start());
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_DATA});
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
    change(index, [&](HANDLE file) { ASSERT_TRUE(resizeLocalFile(file, one)); });
    const auto made = started();
    EXPECT_FALSE(made->end());
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_DATA});
    EXPECT_FALSE(made->backup(L"C:\\c", data, 3, nullptr));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_DATA});
    // The item in progress may be repeated, and one that failed is not missed.
    EXPECT_TRUE(made->backup(L"C:\\b", data, 2, nullptr));
    ASSERT_TRUE(made->recordError(L"C:\\c", 5, ""));
    EXPECT_TRUE(made->backup(L"C:\\d", data, 4, nullptr));
    EXPECT_TRUE(made->end()) << GetLastError();
}

TEST_F(LocalStorageTest, WhatWasCarriedOverMustBeThereWhenTheRunGoesOn) {
    const std::wstring path = complete();
    begin(2);
    bool send = true;
    ASSERT_TRUE(check(path, send));
    EXPECT_FALSE(send);
    started();
    change(place().index(instance()),
           [](HANDLE file) { ASSERT_TRUE(resizeLocalFile(file, LocalIndexReader::begin())); });
    EXPECT_FALSE(storage()->start());
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_DATA});
}

TEST_F(LocalStorageTest, DamageToACompletedBackupIsAClearError) {
    const std::wstring path = complete();
    const LocalPlace where = place();
    const std::string base = instance();
    const std::wstring index = where.index(base);
    const uint64_t size = sizeOfFile(index);
    const auto expectDamaged = [&] {
        EXPECT_FALSE(list(page_));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_DATA});
        const auto reading = restore();
        EXPECT_FALSE(reading->start() && reading->restoreFile(path.c_str(), path.c_str(), 1, true));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_DATA});
        // Nor is it a base to build on.
        begin(2);
        bool send = false;
        EXPECT_FALSE(check(path, send));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_DATA});
        begin(1);
    };
    for (const uint64_t offset : {uint64_t{0}, uint64_t{8}, uint64_t{11}, uint64_t{12}, size - 1}) {
        SCOPED_TRACE(offset);
        flip(index, offset);
        expectDamaged();
        flip(index, offset);
    }
    ASSERT_TRUE(list(page_));
    change(index,
           [](HANDLE file) { ASSERT_TRUE(resizeLocalFile(file, LocalIndexReader::begin())); });
    expectDamaged();
    // Without a sensible document it is no base, and not listed.
    write(where.document(base), "{}");
    EXPECT_FALSE(restore()->start());
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_DATA});
    std::vector<WebInstance> instances;
    EXPECT_TRUE(LocalInstances::list(location_, {}, {}, instances));
    EXPECT_TRUE(instances.empty());
}

// What an index says of packages is only believed as far as there are bytes.
TEST_F(LocalStorageTest, APackageThatIsNotThereIsNeitherReadNorCarriedOver) {
    const std::wstring path = complete(3 * uploadBlockSize);
    const std::wstring packages = place().packages(instance());
    bool send = false;
    const auto sendsAnew = [&] {
        begin(2);
        EXPECT_TRUE(check(path, send)) << GetLastError();
        begin(1);
        return send;
    };
    EXPECT_FALSE(sendsAnew());
    change(packages,
           [](HANDLE file) { ASSERT_TRUE(resizeLocalFile(file, 3 * uploadBlockSize - 1)); });
    EXPECT_TRUE(sendsAnew());
    const auto reading = restore();
    ASSERT_TRUE(reading->start());
    EXPECT_FALSE(reading->restoreFile(path.c_str(), path.c_str(), 1, true));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_DATA});
}

TEST_F(LocalStorageTest, APageIsOnlyAskedForByTheTextOfThePageBefore) {
    complete();
    for (const char* after : {"x", "d", "d7", "f-1", "d9999999999999999999999", "f12x"}) {
        EXPECT_FALSE(list(page_, after)) << after;
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER}) << after;
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
    std::vector<WebInstance> instances;
    const auto ids = [&](const char* machine, const char* jobId) {
        EXPECT_TRUE(LocalInstances::list(location_, machine, jobId, instances));
        std::string text;
        for (const WebInstance& found : instances) {
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
    EXPECT_FALSE(LocalInstances::list(location_, "..", "", instances));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

// The records that check points make are nobody's business.
TEST_F(LocalStorageTest, AfterACheckPointLessIsToBeChecked) {
    const std::wstring path = makeFile(L"file", 48);
    {
        const auto made = started();
        ASSERT_TRUE(backup(*made, path));
    }
    {
        const auto writer = LocalInstanceWriter::open(place(), instance());
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
