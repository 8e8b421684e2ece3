// How backup runs end, and what becomes of those that their storage could not be told to drop.
#include "job/backupjob.h"

#include <deque>

#include "job/scripted_job.h"

namespace dorvo {
namespace {

using namespace test;

class BackupJobTest : public ScriptedJobTest {};

TEST_F(BackupJobTest, OnlyAnEndThatIsRefusedDropsTheRun) {
    struct Row {
        DWORD error;
        bool dropped;  // when it comes a second time, else never
    };
    const Row rows[] = {
        {0x20010190, true},       {0x20010193, true},
        {0x20010194, true},       {0x200101F4, false},
        {0x200101F6, false},      {0x20010199, false},
        {WSAECONNREFUSED, false}, {WSAECONNRESET, false},
        {ERROR_DISK_FULL, false}, {ERROR_SHARING_VIOLATION, false},
        {ERROR_CANCELLED, false}, {ERROR_CRC, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.error);
        rm_rf(dataPath(L"\\job"), true);
        script_ = {};
        script_.end = {row.error, row.error};
        const auto job = makeBackup();
        const LogCapture quiet;
        run(*job);
        EXPECT_EQ(job->state(), paused) << "a gate on the way may have said it";
        EXPECT_EQ(script_.count("cancel"), 0u);
        script_.calls.clear();
        run(*job);
        if (row.dropped) {
            EXPECT_EQ(script_.calls, (Names{"start", "end", "cancel"}));
            EXPECT_EQ(job->state(), failed);
            EXPECT_EQ(job->record().endError, row.error);
            continue;
        }
        EXPECT_EQ(job->state(), paused);
        script_.calls.clear();
        script_.start = {WSAECONNREFUSED};
        run(*job);
        EXPECT_EQ(job->state(), paused) << "nor is it dropped before it comes to its end again";
        run(*job);
        EXPECT_EQ(job->state(), completed);
        EXPECT_EQ(script_.calls, (Names{"start", "start", "end"})) << "nothing is sent again";
    }
}

// A service that lacks something without naming it may still be made to take the run, which is days
// of upload. One that does not let it start again has given it up.
TEST_F(BackupJobTest, AnAnswerToTheEndIsBelievedWhenItLastsOrMeetsTheStartToo) {
    constexpr DWORD conflict = 0x20010199;
    constexpr DWORD unknown = 0x20010194;
    const std::deque<DWORD> conflicts(endTries, conflict);
    std::deque<DWORD> broken(endTries - 1, conflict);
    broken.push_back(0x200101F4);
    broken.insert(broken.end(), conflicts.begin(), conflicts.end());
    struct Row {
        const char* name;
        std::deque<DWORD> start;
        std::deque<DWORD> end;
        size_t last;  // the run that is dropped
    };
    const Row rows[] = {
        {"it lasts", {}, conflicts, endTries},
        {"it meets the start", {0, conflict}, conflicts, 2},
        {"another failure comes in between", {}, broken, broken.size()},
        {"no answer at all in between", {0, WSAECONNRESET}, conflicts, endTries + 1},
        {"no run of that name, once", {}, {unknown, conflict, unknown, unknown}, 4},
        {"nor at the start", {0, unknown}, {unknown}, 2},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        rm_rf(dataPath(L"\\job"), true);
        script_ = {};
        script_.start = row.start;
        script_.end = row.end;
        const auto job = makeBackup();
        const LogCapture quiet;
        for (size_t i = 1; i < row.last; ++i) {
            run(*job);
            ASSERT_EQ(job->state(), paused) << i;
        }
        EXPECT_EQ(script_.count("cancel"), 0u);
        run(*job);
        EXPECT_EQ(job->state(), failed);
        EXPECT_EQ(job->record().endError, row.end.back());
        EXPECT_EQ(script_.calls.back(), "cancel");
        // Another run begins with all its tries.
        script_.end = {row.end.back()};
        run(*job);
        EXPECT_EQ(job->state(), paused);
    }
}

// A run that nobody dropped would be listed as running, and keep its packages, for ever.
TEST_F(BackupJobTest, ACancelThatCouldNotBeToldIsToldLater) {
    struct Row {
        const char* name;
        DWORD error;  // of the cancel
        DWORD again;  // of what comes with the next run
        unsigned told;
    };
    const Row rows[] = {{"told", 0, 0, 0},
                        {"no network", WSAECONNRESET, 0, 1},
                        {"no session", 0x20010191, 0, 1},
                        {"twice without network", WSAECONNRESET, WSAECONNRESET, 2},
                        {"a place that is away, then completed", WSAESTALE, ERROR_INVALID_STATE, 1},
                        {"refused", 0x20010199, 0, 0}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        rm_rf(dataPath(L"\\job"), true);
        script_ = {};
        script_.cancel = {row.error};
        script_.items["b"] = {WSAECONNRESET};
        const auto job = makeBackup();
        const LogCapture quiet;
        run(*job);
        ASSERT_EQ(job->state(), paused);
        const std::string expected = "drop " + job->instanceText() + " ";
        EXPECT_TRUE(job->stop());
        ASSERT_TRUE(job->wait(60'000));
        EXPECT_EQ(job->state(), cancelled);
        EXPECT_TRUE(job->init()) << "which does not make it one that nobody was told of";
        script_.calls.clear();
        script_.drop = {row.again};
        for (unsigned again = 0; again < 3; ++again) {
            run(*job);
            EXPECT_EQ(job->state(), completed);
        }
        EXPECT_EQ(script_.count(expected), row.told);
        // The run comes first.
        EXPECT_EQ(script_.calls[0], "start");
        EXPECT_EQ(script_.calls[1] == expected, row.told != 0);
    }
}

// Whose directory goes with all that is noted there.
TEST_F(BackupJobTest, AJobThatIsRemovedHandsOnWhatItsStorageIsToDrop) {
    struct Row {
        const char* name;
        bool stopped;
        DWORD cancel;
        bool kept;
    };
    const Row rows[] = {{"told", true, 0, false},
                        {"not told", true, WSAECONNRESET, true},
                        {"paused all the while", false, 0, true}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        script_ = {};
        script_.cancel = {row.cancel};
        script_.items["b"] = {WSAECONNRESET};
        auto job = makeBackup();
        const LogCapture quiet;
        run(*job);
        ASSERT_EQ(job->state(), paused);
        const std::wstring folder = dataPath(L"\\drops\\j1");
        const std::wstring drop = folder + L"\\" + toWide(job->instanceText());
        if (row.stopped) {
            EXPECT_TRUE(job->stop());
            ASSERT_TRUE(job->wait(60'000));
        }
        EXPECT_TRUE(job->remove());
        job.reset();
        EXPECT_FALSE(exists(dataPath(L"\\job\\j1")));
        EXPECT_EQ(exists(drop), row.kept);
        EXPECT_EQ(exists(folder + L"\\def"), row.kept);
        rm_rf(folder, true);
    }
}

// It had failed, and was about to say so: dropped while it goes on, nothing of it would be taken.
TEST_F(BackupJobTest, ARunThatGoesOnAfterItsDropWasKeptIsNotDropped) {
    script_.items["b"] = {WSAECONNRESET};
    const auto job = makeBackup();
    run(*job);
    ASSERT_EQ(job->state(), paused);
    job->record().state = static_cast<int32_t>(JobState::running);
    PendingDrops("j1").add({job->instanceText(), L""});
    EXPECT_TRUE(job->init());
    EXPECT_EQ(job->state(), paused);
    EXPECT_FALSE(PendingDrops("j1").any()) << "also for those who tell without the job";
    script_.calls.clear();
    run(*job);
    EXPECT_EQ(job->state(), completed);
    EXPECT_EQ(script_.count("drop " + job->instanceText() + " "), 0u);
}

TEST_F(BackupJobTest, ARunThatDiedWhileItWasCancelledIsDroppedAndLeavesNoPackage) {
    const std::wstring package = itemTempPath(itemTempFolder("j1"), 3);
    const auto job = makeBackup();
    job->record().state = static_cast<int32_t>(JobState::canceling);
    job->record().instanceId.fill(7);
    const std::string expected = "drop " + job->instanceText() + " ";
    write(package, "half a package");
    unsigned before = 0;
    script_.onCrashLeft = [&] {
        ++before;
        EXPECT_EQ(job->state(), static_cast<int32_t>(JobState::canceling));
        EXPECT_TRUE(PendingDrops("j1").any()) << "or a crash right after would lose it";
    };
    EXPECT_TRUE(job->init());
    EXPECT_EQ(before, 1u);
    EXPECT_EQ(job->state(), cancelled);
    EXPECT_FALSE(exists(package));
    run(*job);
    EXPECT_EQ(script_.calls[1], expected);
    EXPECT_EQ(script_.count(expected), 1u);
}

}  // namespace
}  // namespace dorvo
