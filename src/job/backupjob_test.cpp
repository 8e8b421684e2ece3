// How backup runs end, also those whose process dies.
#include "job/backupjob.h"

#include <deque>

#include "job/scripted_job.h"
#include "support/store_watch.h"

namespace dorvo {
namespace {

using namespace test;

class BackupJobTest : public ScriptedJobTest {
protected:
    // What the next process makes of what this one would leave if it died now.
    struct Found {
        int32_t state = 0;
        uint32_t error = 0;
        bool told = false;  // that the run is to be dropped
    };
    Found cutOff() {
        const std::wstring left = dataPath(L"\\job\\j1");
        const std::wstring found = dataPath(L"\\job\\k");
        JobActivity record{};
        EXPECT_TRUE(JobActivityHandle::read("j1", record));
        write(found + L"\\info",
              std::string(reinterpret_cast<const char*>(&record), sizeof(record)));
        if (const std::wstring note = L"\\drops\\" + toWide(uuidText(record.instanceId));
            exists(left + note)) {
            write(found + note, contentOf(left + note));
        }
        Found what;
        {
            const auto next = makeBackup({sources()}, "k");
            EXPECT_TRUE(next->init());
            what = {next->state(), next->record().endError, !toldOf("k").empty()};
        }
        rm_rf(found, true);
        return what;
    }
};

TEST_F(BackupJobTest, OnlyAnEndThatIsRefusedDropsTheRun) {
    struct Row {
        DWORD error;
        bool dropped;  // when it has come as often as it has to
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
        anew();
        const unsigned tries = row.dropped ? endTries : 2;
        script_.end.assign(tries, row.error);
        const auto job = makeBackup();
        for (unsigned i = 1; i < tries; ++i) {
            run(*job);
            ASSERT_EQ(job->state(), paused) << "a gate on the way may have said it";
        }
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
        run(*job, completed);
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
    std::deque<DWORD> starts(endTries, unknown);
    starts.front() = 0;
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
        {"no run of that name, at the end and at each start", starts, {unknown}, endTries},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        anew();
        script_.start = row.start;
        script_.end = row.end;
        const auto job = makeBackup();
        for (size_t i = 1; i < row.last; ++i) {
            run(*job);
            ASSERT_EQ(job->state(), paused) << i;
        }
        EXPECT_EQ(script_.count("cancel"), 0u);
        run(*job, failed);
        EXPECT_EQ(job->record().endError, row.end.back());
        EXPECT_EQ(script_.calls.back(), "cancel");
        // Another run begins with all its tries.
        script_.end = {row.end.back()};
        run(*job, paused);
    }
}

// Told to drop a run that goes on, a storage would take nothing more of it; told nothing of one
// that does not, it would list it as running, and keep its packages, for ever.
TEST_F(BackupJobTest, WhereverARunIsCutOffItGoesOnOrItsStorageIsToldAndNeverBoth) {
    struct Row {
        const char* name;
        void (*script)(Script& script);
        const char* stopped;  // by a call or an item, or once it is paused
        int32_t ends;
        bool told;  // afterwards, and not by the run itself
    };
    const auto lost = [](Script& script) { script.items["b"] = {WSAECONNRESET}; };
    const auto lostTwice = [](Script& script) {
        script.items["b"] = {WSAECONNRESET};
        script.cancel = {WSAECONNRESET};
    };
    const auto refused = [](Script& script) { script.cancel = {0x20010199}; };
    const auto unrecorded = [](Script& script) {
        script.items["b"] = {ERROR_ACCESS_DENIED};
        script.record = ERROR_WRITE_FAULT;
    };
    const auto unrecordedLost = [](Script& script) {
        script.items["b"] = {ERROR_ACCESS_DENIED};
        script.record = ERROR_WRITE_FAULT;
        script.cancel = {0x20010191};
    };
    const Row rows[] = {
        {"it completes", [](Script&) {}, "", completed, false},
        {"it is stopped too late", [](Script&) {}, "end", completed, false},
        {"it is stopped while its end is lost",
         [](Script& script) { script.end = {WSAECONNRESET}; }, "end", cancelled, false},
        {"its end is refused", [](Script& script) { script.end = {ERROR_INVALID_STATE}; }, "",
         failed, false},
        {"nobody hears of that",
         [](Script& script) {
             script.end = {ERROR_INVALID_STATE};
             script.cancel = {WSAECONNRESET};
         },
         "", failed, true},
        {"it fails", unrecorded, "", failed, false},
        {"it fails, and has no session any more", unrecordedLost, "", failed, true},
        {"it is stopped", [](Script&) {}, "b", cancelled, false},
        {"nobody hears of the stop", lostTwice, "paused", cancelled, true},
        {"the stop is refused", refused, "b", cancelled, true},
        {"it pauses, and is stopped then", lost, "paused", cancelled, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        anew();
        row.script(script_);
        const auto job = makeBackup();
        size_t cuts = 0;
        std::string before;
        const auto look = [&] {
            const auto heard = [&](const char* call) { return script_.count(call) != 0; };
            const bool noted =
                exists(dataPath(L"\\job\\j1\\drops\\") + toWide(job->instanceText()));
            std::string now = std::to_string(job->state()) + "/" +
                              std::to_string(job->record().pendingState) + "/";
            for (const bool thing :
                 {noted, script_.listed != 0, heard("start"), heard("end"), heard("cancel")}) {
                now += thing ? "1" : "0";
            }
            if (std::exchange(before, now) == now) {
                return;
            }
            SCOPED_TRACE(now);
            const Found found = cutOff();
            const bool goesOn = found.state == paused;
            ++cuts;
            EXPECT_FALSE(goesOn && (found.told || heard("cancel")));
            EXPECT_TRUE(goesOn || found.told || heard("cancel") || found.state == completed);
            EXPECT_FALSE(found.told && row.ends == completed);
            EXPECT_EQ(found.error != 0, found.state == failed || found.state == cancelled);
            EXPECT_TRUE(noted || script_.listed == 0 || heard("end") || heard("cancel"));
        };
        script_.onCheck = script_.onList = script_.onEnds = look;
        script_.onCall = [&] {
            const std::string call = script_.calls.empty() ? "" : script_.calls.back();
            if (call == "cancel") {
                job->pause(true);  // comes too late
            } else if (!call.empty() && call == row.stopped) {
                EXPECT_TRUE(job->stop());
            }
            look();
        };
        script_.onCleanup = [&](int) { look(); };
        script_.onItem = [&](const std::string& name) {
            EXPECT_TRUE(name != row.stopped || job->stop());
        };
        run(*job);
        if (job->state() == paused) {
            stop(*job);
        }
        EXPECT_EQ(job->state(), row.ends);
        EXPECT_EQ(job->record().pendingState, 0) << "what came too late is no more";
        EXPECT_GE(cuts, 5u);
        look();
        EXPECT_EQ(toldOf().size(), row.told ? 1u : 0u);
        EXPECT_EQ(exists(dataPath(L"\\job\\j1\\drops")), row.told);
        const bool heard = !row.told && script_.count("cancel") != 0;
        EXPECT_EQ(script_.wakes, (script_.count("start") != 0 ? 1u : 0u) + (heard ? 1u : 0u));
    }
}

// The answer to the end may be lost, and the storage keeps what it has completed.
TEST_F(BackupJobTest, AStopOfARunThatItsStorageHasCompletedCompletesIt) {
    constexpr DWORD conflict = 0x20010199;
    struct Row {
        const char* name;
        std::deque<DWORD> item;
        std::deque<DWORD> end;
        std::deque<DWORD> cancel;
        Names calls;  // of the stop
        int32_t ends;
    };
    const Row rows[] = {
        {"the service says so", {}, {WSAECONNRESET}, {conflict}, {"cancel", "end"}, completed},
        {"it has dropped the run",
         {},
         {WSAECONNRESET, conflict},
         {conflict},
         {"cancel", "end"},
         cancelled},
        {"it has never been ended", {WSAECONNRESET}, {}, {conflict}, {"cancel"}, cancelled},
        {"it has not", {}, {WSAECONNRESET}, {}, {"cancel"}, cancelled},
        {"a gate answers", {}, {WSAECONNRESET}, {0x20010194}, {"cancel"}, cancelled},
        {"a folder says so", {}, {ERROR_DISK_FULL}, {ERROR_INVALID_STATE}, {"cancel"}, completed},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        anew();
        script_.items["b"] = row.item;
        script_.end = row.end;
        script_.cancel = row.cancel;
        const auto job = makeBackup();
        run(*job, paused);
        script_.calls.clear();
        stop(*job);
        EXPECT_EQ(script_.calls, row.calls);
        EXPECT_EQ(job->state(), row.ends);
        EXPECT_EQ(job->record().lastRunState, row.ends);
        EXPECT_EQ(job->record().endError, row.ends == completed ? 0u : DWORD{ERROR_CANCELLED});
        EXPECT_EQ(job->history().at("state").get_str(), jobStateToString(row.ends));
    }
}

TEST_F(BackupJobTest, AStopThatComesWhileACompletedRunsNoteIsHeldCancelsNothing) {
    for (const bool later : {false, true}) {
        SCOPED_TRACE(later);
        anew();
        const auto job = makeBackup();
        std::optional<Held> held;
        script_.onCall = [&] {
            if (!held && !script_.calls.empty() && script_.calls.back() == "end") {
                held.emplace(dataPath(L"\\job\\j1\\drops\\") + toWide(job->instanceText()));
                EXPECT_TRUE(later || job->stop());
            }
        };
        run(*job);
        if (later) {
            ASSERT_EQ(job->state(), paused);
            stop(*job);
        }
        EXPECT_EQ(job->state(), completed);
        EXPECT_EQ(script_.count("end"), 1u);
        EXPECT_EQ(script_.count("cancel"), 0u);
        EXPECT_EQ(job->record().endError, 0u);
        held.reset();
        EXPECT_EQ(toldOf(), Names{}) << "nor does anybody else";
    }
}

// To who comes after a process that dies then, the run must be none that has failed.
TEST_F(BackupJobTest, ARunThatIsCompletedAfterAllIsOnRecordAsSuchBeforeItsNoteGoes) {
    for (const bool stopped : {false, true}) {
        SCOPED_TRACE(stopped);
        anew();
        script_.end = {stopped ? DWORD{ERROR_DISK_FULL} : DWORD{ERROR_INVALID_STATE}};
        script_.cancel = {ERROR_INVALID_STATE};
        const auto job = makeBackup();
        FileHandle held;
        const Meanwhile look([&] {
            EXPECT_EQ(leftAs(static_cast<JobState>(job->state()),
                             static_cast<JobState>(job->record().pendingState)),
                      JobState::paused);
            EXPECT_EQ(job->record().endError, 0u);
            held.reset();
        });
        script_.onCall = [&] {
            if (script_.count("cancel") != 0 && !held) {
                held = holdFile(dataPath(L"\\job\\j1\\drops\\") + toWide(job->instanceText()));
            }
        };
        run(*job);
        if (stopped) {
            stop(*job);
        }
        EXPECT_FALSE(held) << "it was waited for";
        EXPECT_EQ(job->state(), completed);
        EXPECT_EQ(toldOf(), Names{});
    }
}

// A run that the user has paused and then cancelled does not go on by itself.
TEST_F(BackupJobTest, NoStoreOfACancelledPauseMakesARunThatGoesOn) {
    script_.items["b"] = {WSAECONNRESET};
    const auto job = makeBackup();
    run(*job);
    EXPECT_TRUE(job->pause(true));
    ASSERT_EQ(job->record().pausedManually, 1u);
    StoreWatch watch(&job->record());
    size_t stores = 0;
    watch.onStore = [&] {
        ++stores;
        EXPECT_TRUE(job->state() != paused || job->record().pausedManually == 1) << stores;
    };
    watch.begin();
    stop(*job);
    watch.end();
    EXPECT_GT(stores, 3u);
    EXPECT_EQ(job->state(), cancelled);
}

}  // namespace
}  // namespace dorvo
