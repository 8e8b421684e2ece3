// The fixture of the contract suite: a tree to back up, runs of a backup job, and restores of them.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "base/handle.h"
#include "base/handle_streambuf.h"
#include "base/local_time.h"
#include "base/uuid.h"
#include "contract/contractplace.h"
#include "record/jobactsrcreader.h"
#include "record/jobactsrcwriter.h"
#include "support/files.h"
#include "support/signal.h"
#include "support/store_test.h"
#include "support/temporary_folder.h"

namespace dorvo::test {

// Bytes that no compression makes smaller.
inline std::string noise(size_t size, unsigned seed = 1) {
    std::mt19937 random(seed);
    std::string text(size, '\0');
    std::generate(text.begin(), text.end(), [&] { return static_cast<char>(random()); });
    return text;
}

class StorageContract : public StoreTest, public testing::WithParamInterface<NamedPlace> {
protected:
    struct Item {
        std::wstring path;
        WIN32_FILE_ATTRIBUTE_DATA data{};

        bool directory() const { return (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
    };

    StorageContract() : place_(GetParam().make()), backupJob_(newJob()), restoreJob_(newJob()) {
        beginRun();
    }

    // -- the tree ----------------------------------------------------------------------------

    std::wstring source(const std::wstring& name) const { return sources_.path() + L"\\" + name; }
    std::wstring target(const std::wstring& name) const { return target_.path() + L"\\" + name; }

    void put(const std::wstring& name, const std::string& content) {
        const std::wstring path = source(name);
        createDirectories(path.substr(0, path.rfind(L'\\')));
        ASSERT_TRUE(write(path, content)) << GetLastError();
        contents_[name] = content;
    }
    // Every file that is written gets a time of its own.
    bool write(const std::wstring& path, const std::string& content) {
        write_handle_streambuf file(path);
        if (!file.is_open()) {
            return false;
        }
        file.sputn(content.data(), static_cast<std::streamsize>(content.size()));
        file.pubsync();
        const FILETIME time = toFileTime(firstTime + ++written_ * ticksPerSecond);
        SetFileTime(file.handle(), nullptr, nullptr, &time);
        return file.close();
    }

    void setTime(const std::wstring& name, const FILETIME& written) const {
        const FileHandle file(CreateFileW(longPath(source(name)).c_str(), FILE_WRITE_ATTRIBUTES, 0,
                                          nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        ASSERT_NE(SetFileTime(file.get(), nullptr, nullptr, &written), 0) << GetLastError();
    }

    // -- a run -------------------------------------------------------------------------------

    void beginRun() {
        failed_ = newRun(record_, backupJob_);
        stop_.reset();
        listTree();
    }
    // Makes the list from what is on the disk, folders before what lies in them.
    void listTree() {
        items_.clear();
        walk(sources_.path());
        send_.clear();
    }
    std::string instance() const { return uuidText(std::bit_cast<GUID>(record_.instanceId)); }
    const Backend& backend() const { return place_->backend(); }
    BackupTask run() {
        BackupTask task{{backupJob_, "name", key_, &record_, failed_.get(), stop_.handle()}};
        task.compress = compress_;
        for (const Item& item : items_) {
            (item.directory() ? task.totals.directories : task.totals.files) += 1;
        }
        return task;
    }
    StoredRun stored(const std::string& instance) const {
        return {place_->machine(), backupJob_, instance};
    }
    // Asks which files are to be sent; folders always are.
    bool check() {
        send_.assign(items_.size(), true);
        std::vector<IncrementCheck::File> files;
        std::vector<size_t> places;
        for (size_t i = 0; i < items_.size(); ++i) {
            if (!items_[i].directory()) {
                files.push_back({items_[i].path, toTicks(items_[i].data.ftLastWriteTime)});
                places.push_back(i);
            }
        }
        std::vector<bool> send(files.size(), false);
        if (!files.empty() && !backend().incrementCheck(run())->check(files, send)) {
            return false;
        }
        for (size_t i = 0; i < files.size(); ++i) {
            send_[places[i]] = send[i];
        }
        writeList();
        return true;
    }
    // The run's source list: what is to be sent. The run stands at its first item.
    void writeList() {
        const std::wstring path = jobFolder(backupJob_) + L"\\src";
        JobHistorySourceWriter list;
        ASSERT_TRUE(list.open(path, false) && list.startSet());
        uint64_t number = 0;
        for (size_t i = 0; i < items_.size(); ++i) {
            if (send_[i]) {
                ASSERT_TRUE(list.addEntry(items_[i].path, items_[i].data, ++number));
            }
        }
        ASSERT_TRUE(list.endSet() && list.close());
        JobActivitySourceReader reader;
        ASSERT_TRUE(reader.open(path, 0));
        positions_.clear();
        while (reader.next() != 0) {
            positions_.push_back(static_cast<uint64_t>(reader.offset()));
        }
        standAt(1);
    }
    // As a job puts down where it is before each item; behind the last it stands at the end.
    void standAt(uint32_t number) {
        record_.sourcePosition = number <= positions_.size() ? positions_[number - 1] : 0;
    }
    // The names of the files that are to be sent.
    std::vector<std::wstring> sent() const {
        std::vector<std::wstring> names;
        for (size_t i = 0; i < items_.size(); ++i) {
            if (send_[i] && !items_[i].directory()) {
                names.push_back(items_[i].path.substr(sources_.path().size() + 1));
            }
        }
        return names;
    }
    // A new storage of the run, started.
    std::unique_ptr<BackupStorage> started() {
        auto storage = backend().backup(run());
        EXPECT_TRUE(storage->start()) << GetLastError();
        return storage;
    }
    // Of a new run that has asked what to send.
    std::unique_ptr<BackupStorage> begun() {
        beginRun();
        EXPECT_TRUE(check()) << GetLastError();
        return started();
    }
    size_t placeOf(const std::wstring& name) const {
        const auto found = std::find_if(items_.begin(), items_.end(), [&](const Item& item) {
            return item.path == source(name);
        });
        EXPECT_NE(found, items_.end());
        return static_cast<size_t>(found - items_.begin());
    }
    // Items that are sent are numbered from 1, as in a source list.
    bool backup(BackupStorage& storage, size_t place) {
        const auto end = send_.begin() + static_cast<ptrdiff_t>(place) + 1;
        const auto number = static_cast<uint32_t>(std::count(send_.begin(), end, true));
        standAt(number);
        if (!storage.backup(items_[place].path.c_str(), items_[place].data, number, nullptr)) {
            return false;
        }
        standAt(number + 1);
        return true;
    }
    bool backup(BackupStorage& storage, const std::wstring& name) {
        return backup(storage, placeOf(name));
    }
    bool backupAll(BackupStorage& storage) {
        for (size_t i = 0; i < items_.size(); ++i) {
            if (send_[i] && !backup(storage, i)) {
                return false;
            }
        }
        return true;
    }
    // A whole run over the tree; its instance.
    std::string complete() {
        const auto storage = begun();
        EXPECT_TRUE(backupAll(*storage)) << GetLastError();
        EXPECT_TRUE(storage->end()) << GetLastError();
        return instance();
    }

    // -- a restore ---------------------------------------------------------------------------

    std::unique_ptr<RestoreStorage> restoring(const std::string& of) {
        notRestored_ = newRun(restored_, restoreJob_);
        return backend().restore(
            {{restoreJob_, "name", key_, &restored_, notRestored_.get(), stop_.handle()},
             stored(of)});
    }
    // All pages; each item once, folders before what lies in them.
    std::vector<RestoreCatalog::Item> listed(const std::string& of, const std::wstring& path = {}) {
        std::vector<RestoreCatalog::Item> items;
        const auto catalog = backend().catalog(stored(of), nullptr, nullptr);
        RestoreCatalog::Page page;
        do {
            EXPECT_TRUE(catalog->list(path, page.next, page)) << GetLastError();
            items.insert(items.end(), page.items.begin(), page.items.end());
        } while (!page.next.empty() && !HasFailure());
        return items;
    }
    // Restores the whole instance beside the tree, and compares it with what was put.
    void expectComesBack(const std::string& of) {
        rm_rf(target_.path(), false);
        const auto storage = restoring(of);
        ASSERT_TRUE(storage->start()) << GetLastError();
        size_t files = 0;
        uint32_t number = 0;
        for (const RestoreCatalog::Item& item : listed(of)) {
            const std::wstring name = item.path.substr(sources_.path().size() + 1);
            SCOPED_TRACE(toUtf8(name));
            if (item.directory()) {
                EXPECT_TRUE(storage->restoreDirectory(item.path.c_str(), target(name).c_str()))
                    << GetLastError();
                continue;
            }
            ++files;
            EXPECT_TRUE(
                storage->restoreFile(item.path.c_str(), target(name).c_str(), ++number, false))
                << GetLastError();
            EXPECT_TRUE(fileContent(target(name)) == contents_[name]);
            EXPECT_EQ(toTicks(dataOf(target(name)).ftLastWriteTime),
                      toTicks(item.data.ftLastWriteTime));
        }
        EXPECT_EQ(files, contents_.size());
        EXPECT_TRUE(storage->end({{"type", "restore"}, {"state", "Completed"}})) << GetLastError();
    }

    static size_t entriesOf(const std::wstring& folder) {
        return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
    }
    static std::wstring jobFolder(const std::string& job) {
        std::wstring folder;
        jobDirectory(job, folder);
        return folder;
    }
    static std::string newJob() {
        std::string job = uuid();
        createDirectories(jobFolder(job) + L"\\tmp");
        return job;
    }
    static std::unique_ptr<FailedItems> newRun(JobActivity& record, const std::string& job) {
        record.reset(static_cast<int32_t>(JobState::running), true);
        GUID id{};
        createUuid(id);
        record.instanceId = std::bit_cast<std::array<uint8_t, 16>>(id);
        record.startTime = localTimeNow();
        return std::make_unique<FailedItems>(toUtf8(jobFolder(job)) + "\\" + uuidText(id), record);
    }
    static std::string uuid() {
        GUID id{};
        createUuid(id);
        return uuidText(id);
    }

    std::unique_ptr<ContractPlace> place_;
    TemporaryFolder sources_{L"contract source"};
    TemporaryFolder target_{L"contract target"};
    std::map<std::wstring, std::string> contents_;  // of the files of the tree
    std::string backupJob_;
    std::string restoreJob_;
    UserKey key_{{1, 2, 3}, {}};
    bool compress_ = false;
    Signal stop_;

    JobActivity record_{};  // of the run
    std::unique_ptr<FailedItems> failed_;
    std::vector<Item> items_;
    std::vector<bool> send_;
    std::vector<uint64_t> positions_;  // in the source list: of its items in order, and of its end
    JobActivity restored_{};           // of the restore
    std::unique_ptr<FailedItems> notRestored_;

private:
    static constexpr uint64_t firstTime = 131'000'000'000'000'000;

    void walk(const std::wstring& folder) {
        WIN32_FIND_DATAW entry;
        const FindHandle find(FindFirstFileW((longPath(folder) + L"\\*").c_str(), &entry));
        for (bool more = static_cast<bool>(find); more;
             more = FindNextFileW(find.get(), &entry) != 0) {
            const std::wstring name = entry.cFileName;
            if (name == L"." || name == L"..") {
                continue;
            }
            const std::wstring path = std::wstring(folder).append(L"\\").append(name);
            items_.push_back({path, dataOf(path)});
            if (items_.back().directory()) {
                walk(path);
            }
        }
    }

    unsigned written_ = 0;
};

}  // namespace dorvo::test
