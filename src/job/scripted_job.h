// Backup and restore jobs whose storage does what a test says: one ground for the tests of both.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/local_time.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/uuid.h"
#include "job/activity/jobhistory.h"
#include "job/activity/jobhistoryerror.h"
#include "job/activity/jobhistoryinfo.h"
#include "job/activity/jobhistorynotes.h"
#include "job/backupjob.h"
#include "job/restorejob.h"
#include "scheduler/iocpdispatherwrapper.h"
#include "storage/itemtemppath.h"
#include "storage/restoresibling.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/store_test.h"

namespace dorvo::test {

using Names = std::vector<std::string>;

constexpr int32_t completed = static_cast<int32_t>(JobState::completed);
constexpr int32_t paused = static_cast<int32_t>(JobState::paused);
constexpr int32_t cancelled = static_cast<int32_t>(JobState::cancelled);
constexpr int32_t failed = static_cast<int32_t>(JobState::error);

// What the storage of every run of a job was asked, and what it answers: 0 for success.
struct Script {
    Names calls;  // "start", "C:\...", "end", "cancel" (a restore that ends otherwise, too)
    std::vector<std::wstring> readFrom;  // of a backup's items
    std::vector<std::wstring> targets;   // of a restore's
    json_spirit::Object history;         // that a restore ended with
    std::deque<DWORD> start;
    std::map<std::string, std::deque<DWORD>> items;  // by file name
    std::deque<DWORD> end;
    std::deque<DWORD> record;  // each failed item that is to be recorded
    std::deque<DWORD> cancel;  // of a backup
    std::deque<DWORD> drop;    // of earlier runs: "drop <instance> <location>"
    std::deque<DWORD> list;    // each page of a catalog, each batch of an increment check
    std::function<void(const std::string& name)> onItem;
    std::function<void()> onRecord;
    std::function<void()> onList;
    size_t listed = 0;           // how often a list was asked for
    std::deque<DWORD> check;     // for an increment check
    std::deque<DWORD> snapshot;  // to a snapshot of all volumes, which is a call, too
    std::function<void()> onSnapshot;
    // Where the snapshots of volumes are; others can have none. Empty: each where the volume is.
    std::map<std::wstring, std::wstring> shadows;
    std::function<void()> onRun;             // before anything else of a run
    std::function<void(int end)> onCleanup;  // at its end
    uint64_t room = uint64_t{1} << 40;       // on every disk, bytes
    bool noStorage = false;
    std::vector<RestoreCatalog::Item> catalog;
    std::string cutOff;  // the run is cut off when this file of a restore is in its place
    std::function<void(uint32_t number, const std::wstring& target)> onPlaced;

    static bool answer(std::deque<DWORD>& errors) {
        if (errors.empty()) {
            return true;
        }
        const DWORD error = errors.front();
        errors.pop_front();
        SetLastError(error);
        return error == 0;
    }
    bool note(const std::string& call, std::deque<DWORD>& errors) {
        calls.push_back(call);
        return answer(errors);
    }
    bool item(const wchar_t* path) {
        const std::string utf8 = toUtf8(path);
        const std::string name = utf8.substr(utf8.rfind('\\') + 1);
        if (onItem) {
            onItem(name);
        }
        return note(utf8, items[name]);
    }
    bool recordError(FailedItems& failed, const wchar_t* path, DWORD code,
                     const std::string& reason) {
        if (onRecord) {
            onRecord();
        }
        return answer(record) && failed.add(path, code, reason);
    }
    bool askList() {
        ++listed;
        if (onList) {
            onList();
        }
        return answer(list);
    }
    // The names of the items that the storage was asked for.
    Names stored() const {
        Names names;
        for (const std::string& call : calls) {
            if (call.find('\\') != std::string::npos) {
                names.push_back(call.substr(call.rfind('\\') + 1));
            }
        }
        return names;
    }
    size_t count(const std::string& call) const {
        return static_cast<size_t>(std::count(calls.begin(), calls.end(), call));
    }
};

class FakeBackupStorage : public BackupStorage {
public:
    FakeBackupStorage(Script& script, FailedItems& failed) : script_(script), failed_(failed) {}

    bool start() override { return script_.note("start", script_.start); }
    bool recordError(const wchar_t* path, DWORD code, const std::string& reason) override {
        return script_.recordError(failed_, path, code, reason);
    }
    bool end() override { return script_.note("end", script_.end); }
    bool cancel() override { return script_.note("cancel", script_.cancel); }
    bool backup(const wchar_t* path, const WIN32_FILE_ATTRIBUTE_DATA&, uint32_t,
                const wchar_t* readFrom) override {
        script_.readFrom.emplace_back(readFrom == nullptr ? L"" : readFrom);
        return script_.item(path);
    }

private:
    Script& script_;
    FailedItems& failed_;
};

// Makes what it is asked for, with the item's original path for content.
class FakeRestoreStorage : public RestoreStorage {
public:
    FakeRestoreStorage(Script& script, FailedItems& failed) : script_(script), failed_(failed) {}

    bool start() override { return script_.note("start", script_.start); }
    bool recordError(const wchar_t* path, DWORD code, const std::string& reason) override {
        return script_.recordError(failed_, path, code, reason);
    }
    bool end(const json_spirit::Object& history) override {
        script_.history = history;
        if (history.at("state").get_str() == "completed") {
            return script_.note("end", script_.end);
        }
        script_.calls.emplace_back("cancel");
        return true;
    }
    bool restoreDirectory(const wchar_t* original, const wchar_t* target) override {
        script_.targets.emplace_back(target);
        return script_.item(original) && createDirectories(target);
    }
    bool restoreFile(const wchar_t* original, const wchar_t* target, uint32_t number,
                     bool replace) override {
        script_.targets.emplace_back(target);
        if (!script_.item(original)) {
            return false;
        }
        if (!replace && exists(target)) {
            SetLastError(ERROR_FILE_EXISTS);
            return false;
        }
        std::ofstream(target, std::ios::binary) << toUtf8(original);
        if (!script_.cutOff.empty() && toUtf8(original).ends_with("\\" + script_.cutOff)) {
            script_.cutOff.clear();
            script_.onPlaced(number, target);
            SetLastError(WSAECONNRESET);
            return false;
        }
        return true;
    }

private:
    Script& script_;
    FailedItems& failed_;
};

// Lists the script's catalog, two items a page.
class FakeCatalog : public RestoreCatalog {
public:
    explicit FakeCatalog(Script& script) : script_(script) {}

    bool list(const std::wstring& path, const std::string& after, Page& page) override {
        page = {};
        if (!script_.askList()) {
            return false;
        }
        std::vector<Item> all;
        for (const Item& item : script_.catalog) {
            if (path.empty() || item.path == path || item.path.starts_with(path + L"\\")) {
                all.push_back(item);
            }
        }
        const size_t first = after.empty() ? 0 : std::stoul(after);
        const size_t last = std::min(first + 2, all.size());
        page.items.assign(all.begin() + static_cast<ptrdiff_t>(first),
                          all.begin() + static_cast<ptrdiff_t>(last));
        page.next = last < all.size() ? std::to_string(last) : "";
        return true;
    }

private:
    Script& script_;
};

class ScriptedCheck : public IncrementCheck {
public:
    explicit ScriptedCheck(Script& script) : script_(script) {}
    bool check(const std::vector<File>& files, std::vector<bool>& send) override {
        send.assign(files.size(), true);
        return script_.askList();
    }

private:
    Script& script_;
};

class FakeSnapshots : public SnapshotProvider {
public:
    explicit FakeSnapshots(Script& script) : script_(script) {}

    HRESULT begin(int, HANDLE) override { return S_OK; }
    HRESULT supports(const std::wstring& volume, bool& supported) override {
        supported = volume != unsupported;
        return S_OK;
    }
    HRESULT prepare(const std::vector<std::wstring>& volumes, HANDLE) override {
        volumes_ = volumes;
        if (script_.onSnapshot) {
            script_.onSnapshot();
        }
        return script_.note("snapshot", script_.snapshot) ? S_OK
                                                          : static_cast<HRESULT>(GetLastError());
    }
    HRESULT snapshot(std::vector<SnapshotVolume>& made, HANDLE) override {
        for (const std::wstring& volume : volumes_) {
            const auto found = script_.shadows.find(volume);
            if (found != script_.shadows.end()) {
                made.push_back({volume, {}, {}, found->second, 1});
            } else if (script_.shadows.empty()) {
                made.push_back({volume, {}, {}, L"\\\\?\\" + volume, 1});
            }
        }
        return S_OK;
    }
    HRESULT complete() override { return S_OK; }
    const char* step() const override { return ""; }

    std::wstring unsupported;

private:
    Script& script_;
    std::vector<std::wstring> volumes_;
};

// What tests see of a job of either kind.
template <class Job>
class Scripted : public Job {
public:
    template <class... Arguments>
    explicit Scripted(Script& script, Arguments&&... arguments)
        : Job(std::forward<Arguments>(arguments)...), script_(script) {}
    ~Scripted() override { this->shutdown(); }

    using Job::emit;
    using Job::instanceText;
    using Job::stopEvent;
    JobActivity& record() { return *this->activity().get(); }
    json_spirit::Object history() const {
        return JobHistoryInfo(toUtf8(jobHistoryInfoPath(directory(), this->instanceText())))
            .values();
    }
    // Each failed item: its name, code and reason.
    Names errors() const {
        Names found;
        const JobHistoryError document(
            toUtf8(jobHistoryErrorPath(directory(), this->instanceText())));
        for (const json_spirit::Value& value : document.values()) {
            const auto& item = value.get_obj();
            const std::string path = item.at("path").get_str();
            found.push_back(path.substr(path.find_last_of("/\\") + 1) + " " +
                            std::to_string(item.at("code").get_int64()) + " " +
                            item.at("reason").get_str());
        }
        return found;
    }

    // Each note: its kind, path and reason.
    Names notes() const {
        Names found;
        const JobHistoryNotes document(
            toUtf8(jobHistoryNotesPath(directory(), this->instanceText())));
        for (const json_spirit::Value& value : document.values()) {
            const auto& note = value.get_obj();
            found.push_back(note.at("kind").get_str() + " " + note.at("path").get_str() + " " +
                            note.at("reason").get_str());
        }
        return found;
    }

protected:
    unsigned long run() override {
        if (script_.onRun) {
            script_.onRun();
        }
        return Job::run();
    }
    int cleanup(int endCode) override {
        if (script_.onCleanup) {
            script_.onCleanup(endCode);
        }
        return Job::cleanup(endCode);
    }
    std::optional<uint64_t> roomAt(const std::wstring&) const override { return script_.room; }
    bool fits(const DiskNeed& one, const DiskNeed& other) const override {
        return one.bytes + other.bytes <= script_.room;
    }

    template <class Storage, class Interface>
    std::unique_ptr<Interface> make() {
        if (script_.noStorage) {
            SetLastError(ERROR_NOT_SUPPORTED);
            return nullptr;
        }
        return std::make_unique<Storage>(script_, this->failedItems());
    }

    Script& script_;

private:
    std::wstring directory() const {
        std::wstring path;
        jobDirectory(this->definition().id(), path);
        return path;
    }
};

class ScriptedBackup : public Scripted<BackupJob> {
public:
    using Scripted::Scripted;

protected:
    std::unique_ptr<BackupStorage> createStorage(StorageUse) override {
        return make<FakeBackupStorage, BackupStorage>();
    }
};

class ScriptedRestore : public Scripted<RestoreJob> {
public:
    using Scripted::Scripted;

protected:
    std::unique_ptr<RestoreStorage> createStorage(StorageUse) override {
        script_.onPlaced = [this](uint32_t number, const std::wstring& target) {
            const auto& run = record().instanceId;
            const FileHandle file(CreateFileW(target.c_str(), GENERIC_READ, FILE_SHARE_READ,
                                              nullptr, OPEN_EXISTING, 0, nullptr));
            EXPECT_TRUE(placing().announce(run, number, siblingPath(target, run, number)));
            EXPECT_TRUE(placing().choose(target, file.get()));
        };
        return make<FakeRestoreStorage, RestoreStorage>();
    }
    std::unique_ptr<RestoreCatalog> createCatalog() override {
        return std::make_unique<FakeCatalog>(script_);
    }
};

// Three files of 7 bytes in a folder "sources", on the disk and in the catalog.
class ScriptedJobTest : public StoreTest {
protected:
    static void SetUpTestSuite() {
        IocpDispatherWrapper::open();
        IocpDispatherWrapper::activate();
    }
    static void TearDownTestSuite() { IocpDispatherWrapper::close(); }

    ScriptedJobTest() { rm_rf(ground(), true); }
    ~ScriptedJobTest() override { rm_rf(ground(), true); }

    // Beside the data directory: what lies in it is left out.
    static std::wstring ground() { return dataPath(L" ground"); }
    static std::wstring sources() { return ground() + L"\\sources"; }
    static std::wstring target() { return ground() + L"\\to"; }
    static std::wstring list() { return dataPath(L"\\job\\j1\\src"); }

    static RestoreCatalog::Item item(std::wstring path, bool directory = false) {
        RestoreCatalog::Item made;
        made.path = std::move(path);
        made.data.dwFileAttributes = directory ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_ARCHIVE;
        made.data.ftLastWriteTime = toFileTime(130'000'000'000'000'000);
        made.data.nFileSizeLow = directory ? 0 : 7;
        return made;
    }

    std::unique_ptr<ScriptedBackup> makeBackup(std::vector<std::wstring> paths = {sources()}) {
        createDirectories(dataPath(L"\\job\\j1"));
        for (const wchar_t* name : {L"a", L"b", L"c"}) {
            write(sources() + L"\\" + name, "content");
        }
        auto definition = std::make_unique<BackupJobDefinition>("j1", L"job", "alice");
        definition->setSource(std::move(paths));
        BackupJob::Services services;
        services.snapshotsEnabled = [this] { return snapshots_; };
        services.waitForServer = [this] { return waitForServer_; };
        services.snapshots = [this] {
            auto provider = std::make_unique<FakeSnapshots>(script_);
            provider->unsupported = unsupported_;
            return std::make_unique<VSSRequester>(std::move(provider));
        };
        services.snapshotRetryMs = snapshotRetryMs_;
        services.incrementCheck = [this]() -> std::unique_ptr<IncrementCheck> {
            if (!Script::answer(script_.check)) {
                return nullptr;
            }
            return std::make_unique<ScriptedCheck>(script_);
        };
        services.dropRun = [this](const PendingDrop& drop) {
            return script_.note("drop " + drop.instanceId + " " + toUtf8(drop.location),
                                script_.drop);
        };
        return std::make_unique<ScriptedBackup>(script_, std::move(definition),
                                                std::move(services));
    }

    std::unique_ptr<ScriptedRestore> makeRestore(int32_t conflict = 2,
                                                 std::vector<std::wstring> paths = {}) {
        createDirectories(dataPath(L"\\job\\j1"));
        if (script_.catalog.empty()) {
            script_.catalog = {item(L"C:\\sources", true), item(L"C:\\sources\\a"),
                               item(L"C:\\sources\\b"), item(L"C:\\sources\\c")};
        }
        auto definition = std::make_unique<RestoreJobDefinition>("j1", L"job", "alice");
        definition->setOrigin("machine", "backup", "7f0b1e5a-1d2c-4e3f-8a9b-0c1d2e3f4a5b");
        definition->setTarget(target(), prefix_);
        definition->setSource(std::move(paths));
        definition->setConflict(conflict);
        return std::make_unique<ScriptedRestore>(script_, std::move(definition),
                                                 [this] { return waitForServer_; });
    }

    static void run(Job& job) {
        ASSERT_TRUE(job.start());
        ASSERT_TRUE(job.wait(60'000));
    }

    Script script_;
    std::wstring prefix_ = L"C:\\sources\\";  // of restores
    bool snapshots_ = false;
    std::wstring unsupported_;  // the volume that can have no snapshot
    DWORD snapshotRetryMs_ = 0;
    bool waitForServer_ = false;
};

}  // namespace dorvo::test
