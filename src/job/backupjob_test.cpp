#include "job/backupjob.h"

#include <gtest/gtest.h>

#include <deque>
#include <fstream>
#include <map>

#include "base/local_time.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/uuid.h"
#include "job/activity/jobhistory.h"
#include "job/activity/jobhistoryerror.h"
#include "job/activity/jobhistoryinfo.h"
#include "scheduler/iocpdispatherwrapper.h"
#include "storage/itemtemppath.h"
#include "support/log_capture.h"
#include "support/signal.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

constexpr int32_t completed = static_cast<int32_t>(JobState::completed);
constexpr int32_t paused = static_cast<int32_t>(JobState::paused);
constexpr int32_t cancelled = static_cast<int32_t>(JobState::cancelled);
constexpr int32_t failed = static_cast<int32_t>(JobState::error);

// What the storage of every run of a job was asked, and what it answers: 0 for success.
struct Script {
    std::vector<std::string> calls;  // "start", "C:\...", "end", "cancel"
    std::vector<std::wstring> readFrom;
    std::deque<DWORD> start;
    std::map<std::string, std::deque<DWORD>> items;  // by file name
    std::deque<DWORD> end;
    std::function<void(const std::string& name)> onItem;
    bool noStorage = false;

    static bool answer(std::deque<DWORD>& errors) {
        if (errors.empty()) {
            return true;
        }
        const DWORD error = errors.front();
        errors.pop_front();
        SetLastError(error);
        return error == 0;
    }
    std::vector<std::string> stored() const {
        std::vector<std::string> names;
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

class FakeStorage : public BackupStorage {
public:
    FakeStorage(Script& script, FailedItems& failed) : script_(script), failed_(failed) {}

    bool start() override { return note("start", script_.start); }
    bool recordError(const wchar_t* path, DWORD code, const std::string& reason) override {
        return failed_.add(path, code, reason);
    }
    bool end() override { return note("end", script_.end); }
    bool cancel() override {
        std::deque<DWORD> none;
        return note("cancel", none);
    }
    bool backup(const wchar_t* path, const WIN32_FILE_ATTRIBUTE_DATA&, uint32_t,
                const wchar_t* readFrom) override {
        const std::string utf8 = toUtf8(path);
        const std::string name = utf8.substr(utf8.rfind('\\') + 1);
        script_.readFrom.emplace_back(readFrom == nullptr ? L"" : readFrom);
        if (script_.onItem) {
            script_.onItem(name);
        }
        return note(utf8, script_.items[name]);
    }

private:
    bool note(const std::string& call, std::deque<DWORD>& errors) {
        script_.calls.push_back(call);
        return Script::answer(errors);
    }

    Script& script_;
    FailedItems& failed_;
};

class ScriptedJob : public BackupJob {
public:
    ScriptedJob(std::unique_ptr<JobDefinition> definition, Services services, Script& script)
        : BackupJob(std::move(definition), std::move(services)), script_(script) {}
    ~ScriptedJob() override { shutdown(); }

    JobActivity& record() { return *activity().get(); }
    std::wstring document(bool errors) {
        GUID id{};
        std::copy(record().instanceId.begin(), record().instanceId.end(),
                  reinterpret_cast<uint8_t*>(&id));
        std::wstring directory;
        jobDirectory(definition().id(), directory);
        return errors ? jobHistoryErrorPath(directory, uuidText(id))
                      : jobHistoryInfoPath(directory, uuidText(id));
    }

protected:
    std::unique_ptr<BackupStorage> createStorage() override {
        if (script_.noStorage) {
            SetLastError(ERROR_NOT_SUPPORTED);
            return nullptr;
        }
        return std::make_unique<FakeStorage>(script_, failedItems());
    }

private:
    Script& script_;
};

// Answers each batch from a queue: 0 sends all, another code fails.
class ScriptedCheck : public IncrementCheck {
public:
    explicit ScriptedCheck(std::deque<DWORD>& answers) : answers_(answers) {}
    bool check(const std::vector<File>& files, std::vector<bool>& send) override {
        send.assign(files.size(), true);
        return Script::answer(answers_);
    }

private:
    std::deque<DWORD>& answers_;
};

class FakeSnapshots : public SnapshotProvider {
public:
    HRESULT prepare(const std::vector<std::wstring>& volumes, int, HANDLE) override {
        volumes_ = volumes;
        return S_OK;
    }
    HRESULT snapshot(std::vector<SnapshotVolume>& made, HANDLE) override {
        for (const std::wstring& volume : volumes_) {
            made.push_back({volume, {}, {}, L"\\\\?\\" + volume, 1});
        }
        return S_OK;
    }
    HRESULT complete() override { return S_OK; }
    const char* step() const override { return ""; }

private:
    std::vector<std::wstring> volumes_;
};

class BackupJobTest : public test::StoreTest {
protected:
    static void SetUpTestSuite() {
        IocpDispatherWrapper::open();
        IocpDispatherWrapper::activate();
    }
    static void TearDownTestSuite() { IocpDispatherWrapper::close(); }

    BackupJobTest() {
        for (const wchar_t* name : {L"a", L"b", L"c"}) {
            write(sources() + L"\\" + name, "content");
        }
    }

    static std::wstring sources() { return dataPath(L"\\sources"); }
    static std::wstring list() { return dataPath(L"\\job\\j1\\src"); }

    std::unique_ptr<ScriptedJob> makeJob(std::vector<std::wstring> paths = {sources()}) {
        createDirectories(dataPath(L"\\job\\j1"));
        auto definition = std::make_unique<BackupJobDefinition>("j1", L"job", "alice");
        definition->setSource(std::move(paths));
        BackupJob::Services services;
        services.snapshotsEnabled = [this] { return snapshots_; };
        services.waitForServer = [this] { return waitForServer_; };
        services.snapshots = [] {
            return std::make_unique<VSSRequester>(std::make_unique<FakeSnapshots>());
        };
        services.incrementCheck = [this] { return std::make_unique<ScriptedCheck>(check_); };
        return std::make_unique<ScriptedJob>(std::move(definition), std::move(services), script_);
    }
    static void run(ScriptedJob& job) {
        ASSERT_TRUE(job.start());
        ASSERT_TRUE(job.wait(60'000));
    }
    static std::vector<std::string> errors(ScriptedJob& job) {
        std::vector<std::string> found;
        const JobHistoryError document(toUtf8(job.document(true)));
        for (const json_spirit::Value& value : document.values()) {
            const auto& item = value.get_obj();
            const std::string path = item.at("path").get_str();
            found.push_back(path.substr(path.find_last_of("/\\") + 1) + " " +
                            std::to_string(item.at("code").get_int64()) + " " +
                            item.at("reason").get_str());
        }
        return found;
    }

    Script script_;
    std::deque<DWORD> check_;
    bool snapshots_ = false;
    bool waitForServer_ = false;
};

using Names = std::vector<std::string>;

TEST_F(BackupJobTest, StoresEverythingAndEnds) {
    const auto job = makeJob();
    test::LogCapture capture;
    run(*job);
    EXPECT_EQ(job->state(), completed);
    EXPECT_EQ(script_.stored(), (Names{"sources", "a", "b", "c"}));
    EXPECT_EQ(script_.calls.front(), "start");
    EXPECT_EQ(script_.calls.back(), "end");
    EXPECT_EQ(script_.readFrom, std::vector<std::wstring>(4));
    EXPECT_TRUE(capture.has(LogLevel::debug, "Volume snapshot created.\n"));
    EXPECT_TRUE(capture.has(LogLevel::information, "Start to backing up files.\n"));

    const JobActivity& record = job->record();
    EXPECT_EQ(record.fileCount, 3u);
    EXPECT_EQ(record.directoryCount, 1u);
    EXPECT_EQ(record.totalSize, 21u);
    EXPECT_EQ(record.doneSize, 21u);
    EXPECT_EQ(record.fileIndex, 3u);
    EXPECT_EQ(record.progress(), 100);
    EXPECT_EQ(record.endError, 0u);
    EXPECT_EQ(record.lastRunState, completed);

    const JobHistoryInfo info(toUtf8(job->document(false)));
    EXPECT_EQ(info.values().at("state").get_str(), "completed");
    EXPECT_EQ(info.values().at("filescount").get_int64(), 3);
    EXPECT_TRUE(errors(*job).empty());
    EXPECT_NE(GetFileAttributesW(job->document(true).c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(BackupJobTest, RecordsItemsThatFailAndGoesOn) {
    script_.items["a"] = {0x20010193};
    script_.items["b"] = {ERROR_SHARING_VIOLATION};
    script_.items["c"] = {ERROR_CANCELLED};
    const auto job = makeJob();
    run(*job);
    EXPECT_EQ(job->state(), completed);
    EXPECT_EQ(errors(*job), (Names{"a 536936851 Forbidden", "b 32 "}));
    EXPECT_EQ(job->record().failedItems, 2u);
}

TEST_F(BackupJobTest, PausesForTheNetworkAndResumesAtTheItem) {
    script_.items["a"] = {ERROR_ACCESS_DENIED};
    script_.items["b"] = {WSAECONNRESET};
    auto job = makeJob();
    run(*job);
    EXPECT_EQ(job->state(), paused);
    EXPECT_EQ(job->record().pausedManually, 0u);
    EXPECT_EQ(job->record().endError, static_cast<uint32_t>(WSAECONNRESET));
    EXPECT_EQ(script_.count("end") + script_.count("cancel"), 0u);

    // Another process takes it up.
    job.reset();
    script_.calls.clear();
    job = makeJob();
    ASSERT_TRUE(job->init());
    run(*job);
    EXPECT_EQ(job->state(), completed);
    EXPECT_EQ(script_.stored(), (Names{"b", "c"}));
    EXPECT_EQ(errors(*job), (Names{"a 5 "}));
    EXPECT_EQ(job->record().fileIndex, 3u);
    EXPECT_EQ(job->record().doneSize, 21u);
}

TEST_F(BackupJobTest, StartFailures) {
    struct Row {
        const char* name;
        DWORD error;
        bool wait;
        int32_t state;
    };
    const Row rows[] = {
        {"no session", 0x20010191, false, paused},
        {"busy", 0x200101F7, false, paused},
        {"server error", 0x200101F4, false, failed},
        {"refused", WSAECONNREFUSED, false, failed},
        {"refused, worth waiting", WSAECONNREFUSED, true, paused},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        rm_rf(dataPath(L"\\job"), true);
        script_ = {};
        script_.start = {row.error};
        waitForServer_ = row.wait;
        const auto job = makeJob();
        test::LogCapture capture;
        run(*job);
        EXPECT_EQ(job->state(), row.state);
        EXPECT_EQ(job->record().endError, row.error);
        EXPECT_TRUE(capture.has(LogLevel::error, "Start job failed.\n"));
        EXPECT_EQ(script_.count("cancel"), row.state == failed ? 1u : 0u);
        EXPECT_TRUE(script_.stored().empty());
    }
}

TEST_F(BackupJobTest, FailsWithoutAStorage) {
    script_.noStorage = true;
    const auto job = makeJob();
    run(*job);
    EXPECT_EQ(job->state(), failed);
    EXPECT_EQ(job->record().endError, static_cast<uint32_t>(ERROR_NOT_SUPPORTED));
    const JobHistoryInfo info(toUtf8(job->document(false)));
    EXPECT_EQ(info.values().at("state").get_str(), "error");
}

TEST_F(BackupJobTest, ARunPausedBeforeItsListWasWholeGeneratesItAnew) {
    check_ = {WSAECONNRESET};
    const auto job = makeJob();
    run(*job);
    EXPECT_EQ(job->state(), paused);
    EXPECT_TRUE(script_.calls.empty());
    write(sources() + L"\\d", "later");
    run(*job);
    EXPECT_EQ(job->state(), completed);
    EXPECT_EQ(script_.stored(), (Names{"sources", "a", "b", "c", "d"}));
}

TEST_F(BackupJobTest, ARunThatThrowsEndsLikeAnyOtherFailure) {
    script_.onItem = [](const std::string&) { throw std::runtime_error("broken"); };
    const auto job = makeJob();
    run(*job);
    EXPECT_EQ(job->state(), failed);
    EXPECT_EQ(job->lastRunState(), failed);
    EXPECT_EQ(script_.count("cancel"), 1u);
    const JobHistoryInfo info(toUtf8(job->document(false)));
    EXPECT_EQ(info.values().at("state").get_str(), "error");
}

TEST_F(BackupJobTest, ASourceThatIsNotThereIsAFailedItemOnce) {
    check_ = {WSAECONNRESET};
    // The first has no volume.
    const auto job = makeJob({L"\\\\?\\none", sources() + L"\\x", sources() + L"\\y", sources()});
    run(*job);
    EXPECT_EQ(job->state(), paused);
    EXPECT_EQ(job->record().failedItems, 3u);
    run(*job);
    EXPECT_EQ(job->state(), completed);
    EXPECT_EQ(errors(*job), (Names{"none 3 ", "x 2 ", "y 2 "}));
    EXPECT_EQ(job->record().failedItems, 3u);
}

TEST_F(BackupJobTest, AStopOutweighsTheErrorItCauses) {
    const auto job = makeJob();
    script_.items["b"] = {WSAECONNRESET};
    script_.onItem = [&](const std::string& name) {
        if (name == "b") {
            EXPECT_TRUE(job->stop());
        }
    };
    run(*job);
    EXPECT_EQ(job->state(), cancelled);
    EXPECT_EQ(script_.stored(), (Names{"sources", "a", "b"}));
    EXPECT_EQ(script_.calls.back(), "cancel");
    EXPECT_TRUE(errors(*job).empty());
    EXPECT_EQ(job->record().pendingState, 0);
}

TEST_F(BackupJobTest, AManualPauseInAnItemRepeatsItOnResume) {
    const auto job = makeJob();
    script_.items["b"] = {ERROR_CANCELLED};
    script_.onItem = [&](const std::string& name) {
        if (name == "b" && script_.count(toUtf8(sources()) + "\\b") == 0) {
            write(itemTempPath(itemTempFolder("j1"), 3), "half a package");
            EXPECT_TRUE(job->pause(true));
        }
    };
    run(*job);
    EXPECT_EQ(job->state(), paused);
    EXPECT_EQ(job->record().pausedManually, 1u);
    EXPECT_EQ(GetFileAttributesW(itemTempPath(itemTempFolder("j1"), 3).c_str()),
              INVALID_FILE_ATTRIBUTES);
    run(*job);
    EXPECT_EQ(job->state(), completed);
    EXPECT_EQ(script_.stored(), (Names{"sources", "a", "b", "b", "c"}));
    EXPECT_EQ(job->record().pausedManually, 0u);
}

TEST_F(BackupJobTest, StoppingAPausedRunOnlyCancelsIt) {
    script_.items["b"] = {WSAECONNRESET};
    const auto job = makeJob();
    run(*job);
    script_.calls.clear();
    EXPECT_TRUE(job->stop());
    ASSERT_TRUE(job->wait(60'000));
    EXPECT_EQ(job->state(), cancelled);
    EXPECT_EQ(script_.calls, Names{"cancel"});
    EXPECT_EQ(GetFileAttributesW(dataPath(L"\\job\\j1\\act\\vol\\1").c_str()),
              INVALID_FILE_ATTRIBUTES);
}

TEST_F(BackupJobTest, AParkedJobStopsWithoutAThreadAndStartsANewRun) {
    const auto job = makeJob();
    EXPECT_TRUE(job->pause(true));
    EXPECT_TRUE(job->stop());
    EXPECT_EQ(job->state(), cancelled);
    EXPECT_TRUE(script_.calls.empty());
    run(*job);
    EXPECT_EQ(job->state(), completed);
}

TEST_F(BackupJobTest, AnEndThatFailsForNowIsAllThatIsRepeated) {
    script_.end = {0x200101F7, ERROR_CANCELLED};
    const auto job = makeJob();
    test::LogCapture capture;
    run(*job);
    EXPECT_EQ(job->state(), paused);
    EXPECT_TRUE(capture.has(LogLevel::error,
                            "Failed to end job {j1, job}, error-code = 503, Service Unavailable, "
                            "retrying latter.\n"));
    run(*job);
    EXPECT_EQ(job->state(), paused) << "the end was broken off";
    script_.calls.clear();
    run(*job);
    EXPECT_EQ(job->state(), completed);
    EXPECT_EQ(script_.calls, (Names{"start", "end"}));
}

TEST_F(BackupJobTest, AnEndThatIsRefusedFailsTheRun) {
    script_.end = {0x20010199};
    const auto job = makeJob();
    run(*job);
    EXPECT_EQ(job->state(), failed);
    EXPECT_EQ(script_.calls.back(), "cancel");
    EXPECT_EQ(job->record().endError, 0x20010199u);
}

TEST_F(BackupJobTest, NothingToDoCompletes) {
    const auto job = makeJob({sources() + L"\\missing"});
    run(*job);
    EXPECT_EQ(job->state(), completed);
    EXPECT_EQ(script_.calls, (Names{"start", "end"}));
}

TEST_F(BackupJobTest, AListWithoutItsEndNeverCompletes) {
    script_.items["b"] = {WSAECONNRESET};
    const auto job = makeJob();
    run(*job);
    std::string content = contentOf(list());
    write(list(), content.substr(0, content.size() - 6));
    run(*job);
    EXPECT_EQ(job->state(), failed);
    EXPECT_EQ(job->record().endError, static_cast<uint32_t>(ERROR_FILE_CORRUPT));
    EXPECT_EQ(script_.count("end"), 0u);
}

TEST_F(BackupJobTest, ReadsFilesFromTheSnapshot) {
    snapshots_ = true;
    const auto job = makeJob();
    run(*job);
    EXPECT_EQ(job->state(), completed);
    ASSERT_EQ(script_.readFrom.size(), 4u);
    EXPECT_EQ(script_.readFrom[0], L"");
    EXPECT_EQ(script_.readFrom[1], L"\\\\?\\" + sources() + L"\\a");
    EXPECT_EQ(script_.stored(), (Names{"sources", "a", "b", "c"}));
}

TEST_F(BackupJobTest, TakesUpWhatACrashLeft) {
    struct Row {
        JobState left;
        int32_t pending;
        uint32_t manual;
        JobState found;
        uint32_t stillManual;
    };
    using enum JobState;
    const Row rows[] = {
        {starting, 0, 0, paused, 0},     {running, 0, 0, paused, 0},
        {running, 0, 1, paused, 0},      {running, 5, 1, paused, 1},
        {running, 8, 0, cancelled, 0},   {JobState::completing, 0, 0, paused, 0},
        {pausing, 0, 0, paused, 0},      {pausing, 0, 1, paused, 1},
        {paused, 0, 1, paused, 1},       {canceling, 0, 0, cancelled, 0},
        {idle, 0, 0, idle, 0},           {JobState::completed, 0, 0, JobState::completed, 0},
        {cancelled, 0, 0, cancelled, 0}, {error, 0, 0, error, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << jobStateToString(row.left) << " pending " << row.pending
                                        << " manual " << row.manual);
        const auto job = makeJob();
        JobActivity& record = job->record();
        record.reset(static_cast<int32_t>(row.left), true);
        record.instanceId.fill(row.left == idle ? uint8_t{0} : uint8_t{7});
        record.pendingState = row.pending;
        record.pausedManually = row.manual;
        EXPECT_TRUE(job->init());
        EXPECT_EQ(job->state(), static_cast<int32_t>(row.found));
        EXPECT_EQ(record.pausedManually, row.stillManual);
        EXPECT_EQ(record.pendingState, 0);
    }
}

}  // namespace
}  // namespace dorvo
