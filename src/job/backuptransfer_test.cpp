// The steps of a backup run: sources, snapshots, storage, items.
#include "job/backuptransfer.h"

#include <deque>
#include <map>
#include <stdexcept>

#include "job/scripted_job.h"
#include "support/signal.h"

namespace dorvo {
namespace {

using namespace test;

class BackupRunTest : public ScriptedJobTest {};

TEST_F(BackupRunTest, ReadsFilesFromWhereTheyAre) {
    for (const bool snapshots : {false, true}) {
        SCOPED_TRACE(snapshots);
        anew();
        snapshots_ = snapshots;
        const auto job = makeBackup();
        run(*job, completed);
        ASSERT_EQ(script_.readFrom.size(), 4u);
        EXPECT_EQ(script_.readFrom[0], L"") << "a directory has nothing to read";
        EXPECT_EQ(script_.readFrom[1], snapshots ? L"\\\\?\\" + sources() + L"\\a" : L"");
        EXPECT_EQ(job->history().at("type").get_str(), "backup");
    }
}

TEST_F(BackupRunTest, ASourceThatIsNotThereIsAFailedItemOnce) {
    script_.list = {WSAECONNRESET};
    // The first has no volume.
    const auto job =
        makeBackup({L"\\\\?\\none", sources() + L"\\x", sources() + L"\\y", sources()});
    run(*job, paused);
    EXPECT_EQ(job->record().failedItems, 3u);
    run(*job, completed);
    EXPECT_EQ(job->errors(), (Names{"none 3 ", "x 2 ", "y 2 "}));
    EXPECT_EQ(job->record().failedItems, 3u);
}

// Wine's drive Z: is a second volume.
class TwoVolumes : public BackupRunTest {
protected:
    TwoVolumes() {
        write(second_ + L"\\z", "content");
        snapshots_ = true;
        script_.items["z"] = {WSAECONNRESET};
    }
    ~TwoVolumes() override { rm_rf(second_, true); }

    const std::wstring second_ =
        L"Z:\\tmp\\dorvo two volumes " + std::to_wstring(GetCurrentProcessId());
};

TEST_F(TwoVolumes, EachIsReadFromItsSnapshotAfterAResumeToo) {
    for (const std::vector<const wchar_t*>& lost :
         std::vector<std::vector<const wchar_t*>>{{}, {L"1"}, {L"2"}, {L"1", L"2"}}) {
        SCOPED_TRACE(lost.size());
        anew();
        script_.items["z"] = {WSAECONNRESET};
        const auto job = makeBackup({sources(), second_});
        run(*job, paused);
        EXPECT_EQ(job->record().volumeIndex, 2);
        for (const wchar_t* record : lost) {
            const std::wstring path = dataPath(L"\\job\\j1\\act\\vol\\") + record;
            EXPECT_NE(DeleteFileW(path.c_str()), 0);
        }
        script_.readFrom.clear();
        run(*job, completed);
        ASSERT_EQ(script_.readFrom.size(), 1u);
        EXPECT_EQ(script_.readFrom[0], L"\\\\?\\" + second_ + L"\\z");
        EXPECT_EQ(job->notes(), Names{});
    }
}

TEST_F(TwoVolumes, OneWithoutASnapshotIsSaidOnce) {
    unsupported_ = L"Z:\\";
    const auto job = makeBackup({sources(), second_});
    run(*job, paused);
    run(*job, completed);
    EXPECT_EQ(script_.readFrom.back(), L"");
    EXPECT_EQ(script_.readFrom[1], L"\\\\?\\" + sources() + L"\\a");
    EXPECT_EQ(job->notes(),
              Names{"warning Z:\\ there can be no snapshot of this volume, so its files were read "
                    "while they could change"});
    EXPECT_TRUE(log_->begins("No snapshot of volume {Z:\\}, "));
}

// A disk that is unplugged before the run goes on: it has no snapshot any more, and its files fail.
// The run is completed, because the other volumes would wait for it as well.
TEST_F(TwoVolumes, OneThatIsGoneAfterAResumeCostsTheOthersNothing) {
    script_.items["b"] = {WSAECONNRESET};
    script_.items["z"] = {ERROR_PATH_NOT_FOUND};
    const auto job = makeBackup({sources(), second_});
    run(*job, paused);
    unsupported_ = L"Z:\\";
    script_.readFrom.clear();
    run(*job, completed);
    const std::wstring shadow = L"\\\\?\\" + sources();
    EXPECT_EQ(script_.readFrom,
              (std::vector<std::wstring>{shadow + L"\\b", shadow + L"\\c", L"", L""}));
    EXPECT_EQ(job->errors(), Names{"z 3 "});
}

TEST_F(BackupRunTest, SaysWhenItsFilterHasKeptAllFilesOut) {
    createDirectories(ground() + L"\\empty");
    for (const bool empty : {false, true}) {
        SCOPED_TRACE(empty);
        const auto job = makeBackup();
        auto filtered = std::make_unique<BackupJobDefinition>("j1", L"job", "alice");
        filtered->setSource({empty ? ground() + L"\\empty" : sources()});
        filtered->setFilter(1, {L"doc"});
        job->definition(std::move(filtered));
        run(*job, completed);
        EXPECT_EQ(job->notes().size(), empty ? 0u : 1u);
    }
}

TEST_F(BackupRunTest, APackageGoesWithItsItem) {
    const auto job = makeBackup();
    const std::wstring package = itemTempPath(itemTempFolder("j1"), 3);
    script_.items["b"] = {ERROR_CANCELLED};
    script_.onItem = [&](const std::string& name) {
        if (name == "b") {
            write(package, "half a package");
            EXPECT_TRUE(job->pause(true));
        }
    };
    run(*job, paused);
    EXPECT_FALSE(exists(package));
    write(package, "of a process that was killed");
    script_.onItem = [&](const std::string&) { EXPECT_FALSE(exists(package)); };
    run(*job, completed);
}

TEST_F(BackupRunTest, ARunThatNeverBeganTakesUpNothingOfTheOneBefore) {
    const auto job = makeBackup();
    run(*job, completed);
    write(sources() + L"\\d", "content");
    script_.onRun = [&] { EXPECT_TRUE(job->emit(JobCommand::pause)); };
    run(*job, paused);
    script_.onRun = nullptr;
    script_.calls.clear();
    run(*job, completed);
    EXPECT_EQ(script_.stored(), (Names{"sources", "a", "b", "c", "d"}));
}

// The sources exist on their snapshots alone. Wine's drive Z: is a second volume.
TEST_F(BackupRunTest, AResumedRunReadsTheVolumeItStandsInFromItsNewSnapshot) {
    const auto make = [](const std::wstring& name) {
        const std::wstring shadow = dataPath((L"\\" + name).c_str());
        for (const wchar_t* file : {L"\\one\\a", L"\\two\\b", L"\\two\\c"}) {
            write(shadow + file, "content");
        }
        return shadow + L"\\";
    };
    const std::wstring first[] = {make(L"c1"), make(L"z1")};
    const std::wstring second[] = {make(L"c2"), make(L"z2")};
    snapshots_ = true;
    script_.items["b"] = {WSAECONNRESET, 0};
    script_.items["c"] = {WSAECONNRESET, 0};
    const auto job = makeBackup({L"C:\\one", L"Z:\\two"});
    const auto runWith = [&](std::map<std::wstring, std::wstring> shadows) {
        script_.shadows = std::move(shadows);
        script_.readFrom.clear();
        run(*job);
        return script_.readFrom;
    };
    using Paths = std::vector<std::wstring>;
    EXPECT_EQ(runWith({{L"C:\\", first[0]}, {L"Z:\\", first[1]}}),
              (Paths{L"", first[0] + L"one\\a", L"", first[1] + L"two\\b"}));
    ASSERT_EQ(job->state(), paused);
    EXPECT_EQ(runWith({{L"C:\\", second[0]}, {L"Z:\\", second[1]}}),
              (Paths{second[1] + L"two\\b", second[1] + L"two\\c"}));
    ASSERT_EQ(job->state(), paused);
    // A volume that can have none this time is read as it is, not from a snapshot that is gone.
    EXPECT_EQ(runWith({{L"C:\\", second[0]}}), Paths{L""});
    EXPECT_EQ(job->state(), completed);
    EXPECT_TRUE(job->errors().empty());
}

TEST_F(BackupRunTest, ARunThatOnlyHasToEndTakesNoSnapshot) {
    snapshots_ = true;
    script_.end = {0x200101F4};
    const auto job = makeBackup();
    run(*job, paused);
    script_.calls.clear();
    run(*job, completed);
    EXPECT_EQ(script_.calls, (Names{"start", "end"}));
}

TEST_F(BackupRunTest, AResumedRunSpeaksWithItsStorageBeforeItTakesSnapshots) {
    struct Row {
        const char* name;
        std::deque<DWORD> list;
        std::deque<DWORD> items;  // answers to "b"
    };
    const Row rows[] = {
        {"in the middle of the list", {}, {WSAECONNRESET}},
        {"while it was being made", {WSAECONNRESET}, {}},
    };
    snapshots_ = true;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        anew();
        script_.list = row.list;
        script_.items["b"] = row.items;
        const auto job = makeBackup();
        run(*job, paused);
        for (int tries = 0; tries < 2; ++tries) {
            (row.list.empty() ? script_.start : script_.check) = {WSAECONNRESET};
            run(*job, paused);
            EXPECT_EQ(script_.count("snapshot"), 1u);
        }
        run(*job, completed);
        EXPECT_EQ(script_.count("snapshot"), 2u);
    }
}

TEST_F(BackupRunTest, ABusySnapshotServiceIsAskedAgainForAWhile) {
    constexpr DWORD busy = 0x80042316;
    constexpr DWORD unsupported = 0x8004230C;
    struct Row {
        const char* name;
        std::deque<DWORD> answers;
        int32_t state;
        size_t tries;
    };
    const Row rows[] = {
        {"busy for a while", {busy, busy, 0}, completed, 3},
        {"busy for ever", std::deque<DWORD>(1000, busy), failed, 60},
        {"another error", {busy, unsupported}, failed, 2},
    };
    snapshots_ = true;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        anew();
        script_.snapshot = row.answers;
        script_.failedVolume = L"C:\\";
        const auto job = makeBackup();
        run(*job, row.state);
        EXPECT_EQ(log_->has("The snapshot service fails at volume {C:\\} in AddToSnapshotSet.\n"),
                  row.state == failed);
        EXPECT_EQ(script_.count("snapshot"), row.tries);
        EXPECT_EQ(job->record().endError, row.state == completed ? 0 : row.answers.at(1));
    }
    for (const bool stop : {true, false}) {
        SCOPED_TRACE(stop ? "stopped" : "paused");
        anew();
        script_.snapshot = {busy};
        snapshotRetryMs_ = INFINITE;
        const auto job = makeBackup();
        script_.onSnapshot = [&] { EXPECT_TRUE(stop ? job->stop() : job->pause(true)); };
        run(*job, stop ? cancelled : paused);
        EXPECT_TRUE(script_.snapshotTold) << "what makes it has to give up, too";
    }
    SCOPED_TRACE("stopped between two tries");
    anew();
    script_.snapshot = std::deque<DWORD>(1000, busy);
    snapshotRetryMs_ = INFINITE;
    const auto job = makeBackup();
    Signal asked;
    script_.onSnapshot = [&] { asked.set(); };
    ASSERT_TRUE(job->start() && asked.wait() && job->stop() && job->wait(60'000));
    EXPECT_EQ(job->state(), cancelled);
    EXPECT_EQ(script_.count("snapshot"), 1u);
}

// The storage hears of the end after that, and a check of a folder holds it.
TEST_F(BackupRunTest, ARunThatThrowsLetsItsCheckGoBeforeItEnds) {
    snapshots_ = true;
    script_.list = {WSAECONNRESET};
    const auto job = makeBackup();
    run(*job, paused);
    script_.onSnapshot = [&] {
        EXPECT_EQ(script_.checks, 1u);
        throw std::runtime_error("no memory");
    };
    script_.onCleanup = [&](int) { EXPECT_EQ(script_.checks, 0u); };
    run(*job, failed);
}

// The requester was told to give up: the run has lost its snapshot, and nothing that was sent.
TEST_F(BackupRunTest, APauseThatIsTakenBackWhileSnapshotsAreMadeParksTheRun) {
    snapshots_ = true;
    script_.snapshot = {0x8004230C};
    const auto job = makeBackup();
    script_.onSnapshot = [&] {
        EXPECT_TRUE(job->pause(true));
        EXPECT_TRUE(job->resume());
    };
    run(*job, paused);
    EXPECT_EQ(script_.count("cancel"), 0u);
    script_.onSnapshot = nullptr;
    run(*job, completed);
}

TEST_F(BackupRunTest, ASnapshotThatIsLostParksTheRunUntilThereIsANewOne) {
    const std::wstring shadow = dataPath(L"\\shadow");
    const auto fill = [&] {
        for (const wchar_t* file : {L"\\one\\a", L"\\one\\b", L"\\one\\c"}) {
            write(shadow + file, "content");
        }
    };
    struct Row {
        const char* name;
        DWORD error;   // of "b"
        bool lost;     // the whole snapshot, with "b"
        bool listing;  // it is lost while the list is being made
        int32_t state;
        Names errors;
    };
    const Row rows[] = {
        {"a file alone", ERROR_FILE_NOT_FOUND, false, false, completed, {"b 2 "}},
        {"the snapshot", ERROR_FILE_NOT_FOUND, true, false, paused, {}},
        {"the service refuses", 0x20010193, true, false, completed, {"b 536936851 Forbidden"}},
        {"while listing", 0, true, true, paused, {}},
    };
    snapshots_ = true;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        anew();
        script_.shadows = {{L"C:\\", shadow + L"\\"}};
        script_.items["b"] = {row.error};
        fill();
        script_.onItem = [&](const std::string& name) {
            if (row.lost && !row.listing && name == "b") {
                rm_rf(shadow, true);
            }
        };
        const auto job = makeBackup({L"C:\\one"});
        if (row.listing) {
            // The totals of the run before must not make the list of this one whole.
            run(*job, completed);
            script_.onList = [&] { rm_rf(shadow, true); };
        }
        run(*job, row.state);
        EXPECT_EQ(job->errors(), row.errors);
        if (row.state == paused) {
            script_.onItem = nullptr;
            script_.onList = nullptr;
            script_.calls.clear();
            fill();
            run(*job, completed);
            EXPECT_TRUE(job->errors().empty());
            EXPECT_EQ(script_.stored(),
                      row.listing ? (Names{"one", "a", "b", "c"}) : (Names{"b", "c"}));
        }
    }
}

}  // namespace
}  // namespace dorvo
