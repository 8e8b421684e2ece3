// What the tests of local storage begin with: an empty location, runs of a job, and files that are
// spoilt.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/files.h"
#include "base/handle.h"
#include "base/local_time.h"
#include "base/uuid.h"
#include "record/jobactsrcreader.h"
#include "record/jobactsrcwriter.h"
#include "storage/local/localbackend.h"
#include "storage/local/localplace.h"
#include "support/store_test.h"
#include "support/temporary_folder.h"

namespace dorvo {

class LocalStorageTest : public test::StoreTest {
protected:
    static constexpr char job[] = "j1";

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
        writeList({});
    }
    // The run's source list: items of these paths. The run stands at the first.
    void writeList(const std::vector<std::wstring>& paths,
                   DWORD attributes = FILE_ATTRIBUTE_NORMAL) {
        JobHistorySourceWriter writer;
        ASSERT_TRUE(writer.open(listPath(), false) && writer.startSet());
        WIN32_FILE_ATTRIBUTE_DATA data{};
        data.dwFileAttributes = attributes;
        for (uint64_t number = 0; number < paths.size(); ++number) {
            ASSERT_TRUE(writer.addEntry(paths[number], data, number + 1));
        }
        ASSERT_TRUE(writer.endSet() && writer.close());
        standAt(1);
    }
    // The run stands at the item of the list, by its number; behind the last: at its end.
    void standAt(unsigned number) {
        JobActivitySourceReader reader;
        ASSERT_TRUE(reader.open(listPath(), 0));
        for (unsigned record = 0; record < number; ++record) {
            reader.next();
        }
        record_.sourcePosition = static_cast<uint64_t>(reader.offset());
    }
    static std::wstring listPath() {
        std::wstring directory;
        jobDirectory(job, directory);
        return directory + L"\\src";
    }
    std::string instance() const { return instanceText(record_.instanceId); }
    LocalPlace place() const { return {location_, machine_, job}; }

    LocalBackend backend(const std::string& user = "alice") const {
        return LocalBackend(location_, user, machine_);
    }
    BackupTask task() {
        return {{job, "name", key_, &record_, failed_.get(), nullptr}, false, {1, 2, 3}};
    }
    RestoreTask restoreTask() {
        return {{"r", "name", key_, &restored_}, {machine_, job, instance()}};
    }
    std::unique_ptr<BackupStorage> storage() { return backend().backup(task()); }
    std::unique_ptr<BackupStorage> started() {
        auto made = storage();
        EXPECT_TRUE(made->start()) << GetLastError();
        return made;
    }
    std::unique_ptr<RestoreStorage> restore() { return backend().restore(restoreTask()); }
    // A file whose package has the wanted size: a multiple of 16 above 0.
    std::wstring makeFile(const std::wstring& name, size_t packageSize, char content = 'x') {
        std::wstring path = folder_.path() + L"\\" + name;
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
        std::vector<bool> answer{false};
        const bool checked = backend().incrementCheck(task())->check(
            {{path, toTicks(attributes(path).ftLastWriteTime)}}, answer);
        send = answer[0];
        return checked;
    }
    // A completed instance with one file.
    std::wstring complete(size_t packageSize = 48) {
        std::wstring path = makeFile(L"file", packageSize);
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
    static void cut(const std::wstring& path, uint64_t size) {
        change(path, [&](HANDLE file) { ASSERT_TRUE(resizeFile(file, size)); });
    }
    static void flip(const std::wstring& path, uint64_t offset) {
        change(path, [&](HANDLE file) {
            std::byte byte{};
            ASSERT_TRUE(readFileAt(file, offset, std::span(&byte, 1)));
            byte ^= std::byte{4};
            ASSERT_TRUE(writeFileAt(file, offset, std::span(&byte, 1)));
        });
    }
    static uint64_t sizeOfFile(const std::wstring& path) {
        const auto data = attributes(path);
        return sizeOf(data);
    }
    bool list(RestoreCatalog::Page& page, const std::string& after = {}) {
        return backend().catalog(restoreTask().from, nullptr, nullptr)->list({}, after, page);
    }

    test::TemporaryFolder folder_{L"local storage"};
    std::wstring location_;
    std::string machine_ = "m\u00e4c";
    UserKey key_{{1, 2, 3}, {}};
    JobActivity record_{};
    JobActivity restored_{};
    std::unique_ptr<FailedItems> failed_;
    RestoreCatalog::Page page_;
};

}  // namespace dorvo
