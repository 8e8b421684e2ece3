#include "run/runfollow.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "base/error_codes.h"
#include "base/files.h"
#include "base/paths.h"
#include "base/text.h"
#include "engine/fakeengine.h"
#include "jobdef/backupjobdefinition.h"
#include "jobdef/restorejobdefinition.h"
#include "record/jobactivityhandle.h"
#include "record/jobhistory.h"
#include "record/jobwait.h"
#include "run/jobrun.h"
#include "text/agenterror.h"
#include "text/faketerminal.h"

namespace dorvo::agent {
namespace {

TEST(RunEvents, TellOfRemovedJobsAndOfTheEnd) {
    FakeEngine engine;
    RunEvents events(&engine);
    for (const char* text : {R"({"id":"other","name":"n","state":"deleted"})",
                             R"({"id":"job","name":"n","state":"paused"})", "[]",
                             R"({"state":"deleted"})", R"({"id":5,"state":"deleted"})", "{"}) {
        engine.say(text);
        EXPECT_FALSE(events.removed("job")) << text;
    }
    const KernelHandle interrupt(CreateEventW(nullptr, TRUE, TRUE, nullptr));
    EXPECT_FALSE(events.awaitRemoved("job", interrupt.get()));
    engine.say(R"({"id":"job","name":"n","state":"deleted"})");
    EXPECT_TRUE(events.awaitRemoved("job", interrupt.get()));
    EXPECT_FALSE(events.ended());
    engine.say("");
    EXPECT_TRUE(events.awaitRemoved("a third", interrupt.get()));
}

using testing::HasSubstr;

// A job whose record the test writes, as the process that runs it would.
class RunFollow : public testing::Test {
protected:
    RunFollow() {
        jobDirectory(job_.id(), directory_);
        EXPECT_TRUE(createDirectories(directory_) && job_.save(directory_ + L"\\def"));
        EXPECT_TRUE(record_.open(job_.id().c_str(), true));
    }
    ~RunFollow() override {
        record_.close();
        rm_rf(directory_, true);
    }
    void set(JobState state) {
        record_->state = static_cast<int32_t>(state);
        record_->startTime = 1;
    }

    BackupJobDefinition job_{"11111111-2222-3333-4444-555555555555", L"docs", "alice"};
    std::wstring directory_;
    JobActivityHandle record_;
    FakeEngine engine_;
    FakeTerminal terminal_;
};

TEST(StartRun, RunsWhatIsNewOnce) {
    const BackupJobDefinition manual("b", L"docs", "alice");
    const RestoreJobDefinition restore("r", L"docs", "alice");
    FakeEngine engine;
    startRun(engine, manual, true);
    EXPECT_EQ(engine.takeNote(), "submit " + manual.text() + "tell 0 b");
    startRun(engine, restore, true);
    EXPECT_EQ(engine.takeNote(), "submit " + restore.text());
    startRun(engine, restore, false);
    EXPECT_EQ(engine.takeNote(), "tell 0 r");
}

TEST_F(RunFollow, EndsWithARunThatWasOverBeforeTheResidentAgent) {
    const auto run = [&](JobState state, uint64_t startTime) {
        const auto begin = [&] {
            set(state);
            record_->startTime = startTime;
            engine_.say("");
        };
        return runJob(engine_, terminal_, job_, begin, {});
    };
    EXPECT_EQ(run(JobState::completed, 1), exitDone);
    record_->endError = withHttpMark(409);
    ASSERT_TRUE(saveWaitWords(job_.id(), record_->endError, "another run"));
    EXPECT_EQ(run(JobState::error, 1), exitFailed);
    EXPECT_THAT(terminal_.errors.back(), HasSubstr("failed: the server says: another run (HTTP"));
    try {
        run(JobState::completed, 0);  // the record still says how the run before ended
        ADD_FAILURE();
    } catch (const AgentError& error) {
        EXPECT_THAT(error.what(), HasSubstr("did not run"));
        EXPECT_THAT(error.what(), HasSubstr("agent start \"docs\""));
    }
}

TEST_F(RunFollow, ARecordThatNobodyHasIsWaitedForWhileTheAgentLives) {
    const KernelHandle never(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const auto reporter = makeRunReporter(terminal_, job_, false);
    set(JobState::running);
    RunEvents heard(&engine_);
    record_.close();
    EXPECT_FALSE(RunFollower(job_, heard, *reporter).look(0));
    RunEvents unheard(nullptr);
    const RunEnd end = RunFollower(job_, unheard, *reporter).follow(never.get(), [] {});
    EXPECT_EQ(end.code, exitStopped);
    EXPECT_THAT(end.lost, HasSubstr("agent resume"));
}

TEST_F(RunFollow, ARunThatBeginsRightAfterItIsAnother) {
    const auto reporter = makeRunReporter(terminal_, job_, false);
    RunEvents events(&engine_);
    RunFollower follower(job_, events, *reporter);
    record_->instanceId[0] = 1;
    set(JobState::running);
    EXPECT_FALSE(follower.look(0));
    EXPECT_TRUE(createDirectories(directory_ + L"\\hist"));
    const std::string summary =
        toUtf8(jobHistoryInfoPath(directory_, instanceIdOf(*record_.get())));
    std::ofstream(summary) << R"({"state":"completed"})";
    std::ofstream(summary + ".errors") << R"([{"path":"C:/a","code":5,"reason":""}])";
    record_->instanceId[0] = 2;
    EXPECT_TRUE(follower.look(0));
    EXPECT_EQ(follower.end().code, exitSomeFailed);
}

TEST_F(RunFollow, AWatcherSeesEachRunOnce) {
    set(JobState::completed);
    WatchedJob watched(job_.clone(), terminal_, true);
    RunEvents events(nullptr);
    EXPECT_FALSE(watched.look(events, 0));
    EXPECT_FALSE(watched.following());
    // The record of a run that just begins is empty but for its old state.
    record_->startTime = 0;
    EXPECT_FALSE(watched.look(events, 0));
    set(JobState::running);
    EXPECT_FALSE(watched.look(events, 0));
    EXPECT_TRUE(watched.following());
    record_->lastRunTime = 1;
    set(JobState::completed);
    EXPECT_TRUE(watched.look(events, 0));
    EXPECT_EQ(watched.end().code, exitDone);
    EXPECT_FALSE(watched.look(events, 0));
    record_->lastRunTime = 2;  // one that began and ended between two looks
    set(JobState::cancelled);
    EXPECT_TRUE(watched.look(events, 0));
    EXPECT_EQ(watched.end().code, exitStopped);
}

}  // namespace
}  // namespace dorvo::agent
