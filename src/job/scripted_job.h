// Backup and restore jobs whose storage does what a script says: one ground for the tests of both.
#pragma once

#include <gtest/gtest.h>

#include <iostream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/handle.h"
#include "base/local_time.h"
#include "base/paths.h"
#include "base/sharing_retry.h"
#include "base/text.h"
#include "base/uuid.h"
#include "job/backupjob.h"
#include "job/pendingdrops.h"
#include "job/restorejob.h"
#include "job/script.h"
#include "record/jobhistory.h"
#include "record/jobhistoryerror.h"
#include "record/jobhistoryinfo.h"
#include "record/jobhistorynotes.h"
#include "scheduler/iocp_dispatcher.h"
#include "storage/itemtemppath.h"
#include "storage/restoresibling.h"
#include "support/log_capture.h"
#include "support/store_test.h"

namespace dorvo::test {

constexpr int32_t completed = static_cast<int32_t>(JobState::completed);
constexpr int32_t paused = static_cast<int32_t>(JobState::paused);
constexpr int32_t cancelled = static_cast<int32_t>(JobState::cancelled);
constexpr int32_t failed = static_cast<int32_t>(JobState::error);

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
    JobState cleanup(JobState endCode) override {
        if (script_.onCleanup) {
            script_.onCleanup(static_cast<int>(endCode));
        }
        return Job::cleanup(endCode);
    }
    template <class Storage, class Interface>
    std::unique_ptr<Interface> make() {
        if (script_.onStorage) {
            script_.onStorage();
        }
        if (script_.noStorage) {
            SetLastError(ERROR_NOT_SUPPORTED);
            return nullptr;
        }
        return std::make_unique<Storage>(script_);
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
    void runEnds() override {
        if (script_.onEnds) {
            script_.onEnds();
        }
        BackupJob::runEnds();
    }
    std::unique_ptr<BackupStorage> createStorage(const StorageRun&, const SourceTotals&) override {
        return make<FakeBackupStorage, BackupStorage>();
    }
};

class ScriptedRestore : public Scripted<RestoreJob> {
public:
    using Scripted::Scripted;

protected:
    std::unique_ptr<RestoreStorage> createStorage(const StorageRun& storage) override {
        script_.onPlaced = [this, placing = storage.placing](uint32_t number,
                                                             const std::wstring& target) {
            const auto& run = record().instanceId;
            const FileHandle file(CreateFileW(target.c_str(), GENERIC_READ, FILE_SHARE_READ,
                                              nullptr, OPEN_EXISTING, 0, nullptr));
            EXPECT_TRUE(placing->announce(run, number, siblingPath(target, run, number)));
            EXPECT_TRUE(placing->choose(target, file.get()));
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
    ~ScriptedJobTest() override {
        for (const LogLine& line : HasFailure() ? log_->lines() : std::vector<LogLine>()) {
            std::cerr << line.text;
        }
        rm_rf(ground(), true);
    }
    // For the next row of a table: no job, nothing restored, no script, nothing logged.
    void anew() {
        rm_rf(dataPath(L"\\job"), true);
        rm_rf(target(), true);
        script_ = {};
        log_.emplace();
    }

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

    std::unique_ptr<ScriptedBackup> makeBackup(std::vector<std::wstring> paths = {sources()},
                                               const std::string& id = "j1") {
        createDirectories(dataPath(L"\\job\\") + toWide(id));
        for (const wchar_t* name : {L"a", L"b", L"c"}) {
            write(sources() + L"\\" + name, "content");
        }
        auto definition = std::make_unique<BackupJobDefinition>(id, L"job", "alice");
        definition->setSource(std::move(paths));
        BackupJob::Services services;
        services.snapshotsEnabled = [this] { return snapshots_; };
        static_cast<TransferServices&>(services) = transferServices();
        services.snapshots = [this] {
            auto provider = std::make_unique<FakeSnapshots>(script_);
            provider->unsupported = unsupported_;
            return std::make_unique<VSSRequester>(std::move(provider));
        };
        services.snapshotRetryMs = snapshotRetryMs_;
        services.incrementCheck = [this]() -> std::unique_ptr<IncrementCheck> {
            if (script_.onCheck) {
                script_.onCheck();
            }
            if (!Script::answer(script_.check)) {
                return nullptr;
            }
            return std::make_unique<ScriptedCheck>(script_);
        };
        services.tellDrops = [this] { ++script_.wakes; };
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
                                                 transferServices());
    }

    TransferServices transferServices() {
        return {.waitForServer = [this] { return waitForServer_; },
                .roomAt = [this](const std::wstring&) { return std::optional(script_.room); },
                .fits =
                    [this](const DiskNeed& one, const DiskNeed& other) {
                        script_.needs = {one, other};
                        return one.bytes + other.bytes <= script_.room;
                    }};
    }
    static void run(Job& job) {
        ASSERT_TRUE(job.start());
        ASSERT_TRUE(job.wait(60'000));
    }
    static void stop(Job& job) {
        ASSERT_TRUE(job.stop());
        ASSERT_TRUE(job.wait(60'000));
    }
    // The runs of the job that its storage would be told to drop now.
    static Names toldOf(const std::string& id = "j1") {
        Names told;
        PendingDrops(id).tell([&](const PendingDrop& drop) {
            told.push_back(drop.instanceId + "@" + drop.server);
            SetLastError(WSAECONNRESET);
            return false;
        });
        return told;
    }

    // The same, and the state that the job has then.
    static void run(Job& job, int32_t ends, int line = __builtin_LINE()) {
        const testing::ScopedTrace trace("the test", line, "run");
        run(job);
        EXPECT_EQ(job.state(), ends);
    }
    static void stop(Job& job, int32_t ends, int line = __builtin_LINE()) {
        const testing::ScopedTrace trace("the test", line, "stop");
        stop(job);
        EXPECT_EQ(job.state(), ends);
    }

    Script script_;
    std::optional<LogCapture> log_{std::in_place};
    std::wstring prefix_ = L"C:\\sources\\";  // of restores
    bool snapshots_ = false;
    std::wstring unsupported_;  // the volume that can have no snapshot
    DWORD snapshotRetryMs_ = 0;
    bool waitForServer_ = false;
};

}  // namespace dorvo::test
