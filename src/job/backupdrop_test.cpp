// What is on record of a backup run so that its storage is told to drop it, and which storage it
// is.
#include <optional>

#include "job/backupjob.h"
#include "job/scripted_job.h"
#include "settings/options.h"
#include "settings/serverbinding.h"

namespace dorvo {
namespace {

using namespace test;

class BackupDropTest : public ScriptedJobTest {
protected:
    static void setServer(unsigned short port) {
        ASSERT_TRUE(singleton<OptionsImpl>().setServerInfo("", "127.0.0.1", port));
    }
};

// What one server has of the run would be missing at another, which would call it completed.
TEST_F(BackupDropTest, ARunGoesOnAndIsDroppedAtTheServerThatHasIt) {
    struct Row {
        const char* name;
        bool sameServer;  // under its new address
        bool stopped;
        int32_t ends;
    };
    const Row rows[] = {{"resumed", false, false, failed},
                        {"stopped", false, true, cancelled},
                        {"resumed where it has moved to", true, false, completed},
                        {"stopped where it has moved to", true, true, cancelled}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        anew();
        script_.items["b"] = {WSAECONNRESET};
        setServer(1);
        const auto job = makeBackup();
        run(*job, paused);
        const std::string instance = job->instanceText();
        setServer(2);
        if (row.sameServer) {
            EXPECT_TRUE(PendingDrops::bindTo("127.0.0.1:2", Bind::all));
        }
        script_.calls.clear();
        row.stopped ? stop(*job) : run(*job, row.ends);
        EXPECT_EQ(script_.calls.empty(), !row.sameServer);
        EXPECT_EQ(toldOf(), row.sameServer ? Names{} : Names{instance + "@127.0.0.1:1"});
        if (row.ends == failed) {
            EXPECT_EQ(job->record().endError, errorOtherServer);
            run(*job);
            EXPECT_EQ(job->state(), completed) << "the next one begins at the other";
        }
    }
}

TEST_F(BackupDropTest, ARunBeginsAndEndsAtOneServerWhicheverIsSetMeanwhile) {
    struct Row {
        const char* name;
        std::function<void()> Script::*when;
        bool paused;
        bool stopped;
        int32_t ends;
    };
    const Row rows[] = {
        {"while the list is made", &Script::onList, false, false, failed},
        {"while the storage is made", &Script::onStorage, false, false, failed},
        {"while it is made for a run that goes on", &Script::onStorage, true, false, failed},
        {"while it is made to cancel a run", &Script::onStorage, true, true, cancelled},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        anew();
        setServer(1);
        const auto job = makeBackup();
        if (row.paused) {
            script_.items["b"] = {WSAECONNRESET};
            run(*job, paused);
            script_.calls.clear();
        }
        script_.*row.when = [] { setServer(2); };
        row.stopped ? stop(*job) : run(*job, row.ends);
        EXPECT_TRUE(script_.calls.empty());
        EXPECT_EQ(toldOf(), Names{job->instanceText() + "@127.0.0.1:1"});
    }
}

// Nothing is asked of a storage before it is on record where, and nothing is lost while somebody
// has the note open.
TEST_F(BackupDropTest, ARunWaitsForItsNote) {
    const std::wstring folder = dataPath(L"\\job\\j1\\drops");
    const auto job = makeBackup();
    script_.items["b"] = {WSAECONNRESET};
    write(folder, "in the way");
    run(*job, paused);
    EXPECT_TRUE(script_.calls.empty());
    DeleteFileW(folder.c_str());
    run(*job, paused);
    EXPECT_FALSE(script_.calls.empty());

    const std::wstring note = folder + L"\\" + toWide(job->instanceText());
    std::optional<Held> held(std::in_place, note);
    script_.calls.clear();
    run(*job, paused);
    EXPECT_TRUE(script_.calls.empty());
    held.reset();
    script_.onCall = [&] {
        if (!script_.calls.empty() && script_.calls.back() == "end") {
            held.emplace(note);
        }
    };
    run(*job);
    EXPECT_EQ(job->state(), paused) << "completed, it could be told to be dropped";
    held.reset();
    script_.onCall = nullptr;
    run(*job, completed);
    EXPECT_FALSE(exists(note));
}

// A run of a version that noted none, and a disk that has no room for one now.
TEST_F(BackupDropTest, ARunIsNotRecordedAsEndedBeforeItIsNoted) {
    struct Row {
        JobState state;
        JobState pending;
        bool kept;  // as it is
        int32_t ends;
    };
    const Row rows[] = {{JobState::canceling, JobState::idle, true, cancelled},
                        {JobState::running, JobState::canceling, true, cancelled},
                        {JobState::completing, JobState::error, true, failed},
                        {JobState::running, JobState::idle, false, paused}};
    for (const Row& row : rows) {
        SCOPED_TRACE(static_cast<int>(row.state));
        anew();
        const auto job = makeBackup();
        job->record().state = static_cast<int32_t>(row.state);
        job->record().pendingState = static_cast<int32_t>(row.pending);
        job->record().instanceId.fill(0x22);
        const std::wstring folder = dataPath(L"\\job\\j1\\drops");
        const std::wstring note = folder + L"\\" + toWide(job->instanceText());
        write(folder, "no room");
        EXPECT_EQ(job->init(), !row.kept);
        EXPECT_EQ(log_->begins("Job {j1} is left out until "), row.kept);
        if (row.kept) {
            EXPECT_EQ(job->state(), static_cast<int32_t>(row.state));
            EXPECT_EQ(job->record().pendingState, static_cast<int32_t>(row.pending));
            DeleteFileW(folder.c_str());
            EXPECT_TRUE(job->init());
            EXPECT_TRUE(exists(note));
        }
        EXPECT_EQ(job->state(), row.ends);
    }
    // One that is there is enough, whoever has it open.
    rm_rf(dataPath(L"\\job"), true);
    const auto job = makeBackup();
    job->record().instanceId.fill(0x22);
    job->record().state = static_cast<int32_t>(JobState::canceling);
    EXPECT_TRUE(PendingDrops("j1").note({job->instanceText(), L""}));
    const Held held(dataPath(L"\\job\\j1\\drops\\") + toWide(job->instanceText()));
    EXPECT_TRUE(job->init());
    EXPECT_EQ(job->state(), cancelled);
}

// Whose directory goes with all that is noted there.
TEST_F(BackupDropTest, AJobThatIsRemovedHandsOnWhatItsStorageIsToDrop) {
    struct Row {
        const char* name;
        bool stopped;
        DWORD cancel;
        bool kept;
        bool older;  // the run was begun by a version that noted none
    };
    const Row rows[] = {{"told", true, 0, false, false},
                        {"not told", true, WSAECONNRESET, true, false},
                        {"paused all the while", false, 0, true, false},
                        {"paused by an older version", false, 0, true, true}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        anew();
        script_.cancel = {row.cancel};
        script_.items["b"] = {WSAECONNRESET};
        auto job = makeBackup();
        run(*job, paused);
        const std::wstring folder = dataPath(L"\\drops\\j1");
        const std::wstring drop = folder + L"\\" + toWide(job->instanceText());
        if (row.stopped) {
            stop(*job);
        }
        if (row.older) {
            EXPECT_TRUE(PendingDrops("j1").forget(job->instanceText()));
            EXPECT_TRUE(job->init());
        }
        EXPECT_TRUE(job->remove());
        {
            // Whatever of the job stays, its run is not taken for one that goes on.
            FileHandle held;
            if (row.kept) {
                held = holdFile(dataPath(L"\\job\\j1\\drops\\") + toWide(job->instanceText()));
            }
            const Meanwhile look([&] {
                JobActivity record{};
                EXPECT_TRUE(JobActivityHandle::read("j1", record));
                EXPECT_FALSE(record.hasInstance());
                held.reset();
            });
            job.reset();
            EXPECT_FALSE(held) << "it was waited for";
        }
        EXPECT_FALSE(exists(dataPath(L"\\job\\j1")));
        EXPECT_EQ(exists(drop), row.kept);
        EXPECT_EQ(exists(folder + L"\\def"), row.kept);
        rm_rf(folder, true);
    }
}

}  // namespace
}  // namespace dorvo
