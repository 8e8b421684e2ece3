// What a run says of itself, to each kind of listener.
#include "run/runreporter.h"

#include <gmock/gmock.h>

#include "base/error_codes.h"
#include "base/files.h"
#include "base/local_time.h"
#include "base/paths.h"
#include "jobdef/backupjobdefinition.h"
#include "record/jobwait.h"
#include "storage/wire_time.h"
#include "text/faketerminal.h"
#include "text/format.h"

namespace dorvo::agent {
namespace {

using testing::_;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

class RunReporters : public testing::Test {
protected:
    void show(JobState state, uint64_t nowMs) {
        record_.state = static_cast<int32_t>(state);
        for (const auto& reporter : all_) {
            reporter->show(record_, nowMs);
        }
    }
    void finish(JobState state, ExitCode code, std::vector<FailedItem> failed) {
        record_.state = static_cast<int32_t>(state);
        all_[2]->finish(resultOf(record_, code, {false, 10, {0, 1, 100}}, std::move(failed)));
    }

    JobActivity record_{};
    FakeTerminal plain_;
    FakeTerminal live_{true};
    FakeTerminal json_;
    BackupJobDefinition job_{"id", L"docs", "alice"};
    const std::unique_ptr<RunReporter> all_[3] = {makeRunReporter(plain_, job_, false),
                                                  makeRunReporter(live_, job_, false),
                                                  makeRunReporter(json_, job_, true)};
};

TEST_F(RunReporters, SayEachChangeOnceAndTheProgressNowAndThen) {
    record_.fileCount = 2;
    record_.totalSize = 2048;
    record_.doneSize = 1024;
    for (const uint64_t ms : {0U, 100U}) {
        show(JobState::starting, ms);
    }
    for (const uint64_t ms : {200U, 699U, 700U, 10'199U, 10'200U, 10'300U}) {
        show(JobState::running, ms);
    }
    show(JobState::completing, 10'400);
    EXPECT_THAT(plain_.lines, ElementsAre("Backup is looking for what has changed.",
                                          "Backup is running: 2 files, 2.0 KiB to send.",
                                          StartsWith(" 50%"), "Backup is completing."));
    EXPECT_THAT(plain_.statuses, IsEmpty());
    const auto state = [](const char* name) {
        return HasSubstr(std::string(R"("state":")") + name + "\"");
    };
    EXPECT_THAT(json_.lines, ElementsAre(state("starting"), state("running"), state("running"),
                                         state("running"), state("completing")));
    EXPECT_EQ(
        json_.lines[1],
        R"({"id":"id","name":"docs","state":"running","percent":50,"bytes":1024,)"
        R"("totalBytes":2048,"files":0,"fileCount":2,"speed":0,"remainTime":null,"file":""})");
}

TEST_F(RunReporters, SayAtEachPauseOfItsOwnThatItWaitsAndWhy) {
    const std::string waiting = "Backup is paused, waiting for the server, next try in ";
    show(JobState::running, 0);
    show(JobState::pausing, 100);
    record_.endError = withHttpMark(503);
    for (const uint64_t ms : {1000U, 11'000U, 99'000U}) {
        show(JobState::paused, ms);
    }
    record_.resuming = 1;
    record_.endError = withHttpMark(401);
    show(JobState::starting, 99'100);
    show(JobState::paused, 99'200);
    EXPECT_THAT(plain_.lines,
                ElementsAre(StartsWith("Backup is running"), "Backup is pausing.",
                            AllOf(StartsWith(waiting + "30 s ("), HasSubstr("503")),
                            "Backup goes on where it stopped.",
                            AllOf(StartsWith(waiting + "30 s ("), HasSubstr("agent login alice"))));
    ASSERT_THAT(live_.statuses, SizeIs(7));
    EXPECT_THAT(live_.statuses[3], StartsWith(waiting + "20 s ("));
    EXPECT_THAT(live_.statuses[4], StartsWith(waiting + "0 s ("));
    EXPECT_THAT(live_.lines, IsEmpty());
    ASSERT_THAT(json_.lines, SizeIs(5));
    EXPECT_THAT(json_.lines[2], HasSubstr("503"));
    EXPECT_THAT(json_.lines[4], HasSubstr("agent login alice"));
}

TEST_F(RunReporters, TellUntilWhenARunWaits) {
    std::wstring directory;
    ASSERT_TRUE(jobDirectory(job_.id(), directory));
    record_.endError = ERROR_DISK_FULL;
    const uint64_t now = utcTimeNow();
    // It is written down when the run has paused already; what lies behind was of another pause.
    saveWait(job_.id(), now - ticksPerSecond);
    show(JobState::paused, 0);
    const uint64_t until = now + 3600 * ticksPerSecond;
    saveWait(job_.id(), until);
    show(JobState::paused, 1);
    show(JobState::paused, 2);
    rm_rf(directory, true);
    EXPECT_THAT(live_.statuses, ElementsAre(HasSubstr(" 30 s"), _, _));
    ASSERT_THAT(json_.lines, SizeIs(2));
    EXPECT_THAT(json_.lines[0], AllOf(HasSubstr("make room"), EndsWith(R"("until":""})")));
    EXPECT_THAT(json_.lines[1], EndsWith(R"("until":")" + wire_time(until) + "\"}"));
    record_.pausedManually = 1;  // no wait
    show(JobState::paused, 3);
    EXPECT_THAT(plain_.lines, SizeIs(1));
    EXPECT_EQ(live_.statuses.back(), "");
}

TEST_F(RunReporters, TheJsonSummaryHasWhatWasDoneAndWhatFailed) {
    record_.fileCount = 3;
    record_.totalSize = 300;
    record_.doneSize = 200;
    record_.wireSize = 70;
    record_.usedTime = 2'0000000;
    record_.failedItems = 1;
    finish(JobState::completed, exitSomeFailed, {{"C:\\a", 5, "denied"}});
    EXPECT_THAT(
        json_.lines,
        ElementsAre(R"({"id":"id","name":"docs","summary":{"state":"completed","exitCode":3,)"
                    R"("instanceId":"00000000-0000-0000-0000-000000000000","files":2,"bytes":200,)"
                    R"("unchangedFiles":7,"unchangedBytes":0,"wireBytes":70,"speed":100,)"
                    R"("duration":2,"failed":[{"path":"C:\\a","code":5,"reason":"denied"}],)"
                    R"("leftOut":[],"warnings":[]}})"));
    EXPECT_THAT(json_.errors, IsEmpty());
    record_.endError = 0x20010000 | 401;
    finish(JobState::error, exitFailed, {});
    EXPECT_THAT(json_.lines.back(), HasSubstr(R"("error":"the server refused the session)"));
    // Errors stay texts for people too.
    EXPECT_THAT(json_.errors, ElementsAre(HasSubstr("run 'agent login alice'")));
}

TEST_F(RunReporters, NotesAreSaidAndFailNothing) {
    record_.state = static_cast<int32_t>(JobState::completed);
    RunResult result = resultOf(record_, exitDone, {}, {});
    result.notes.leftOut = {{"C:\\a\nb", "a link"}};
    result.notes.warnings.assign(22, {"D:\\", "no snapshot"});
    all_[0]->finish(result);
    all_[2]->finish(result);
    ASSERT_THAT(plain_.lines, SizeIs(2));
    EXPECT_EQ(plain_.lines[0], "left out: C:\\a?b: a link");
    EXPECT_THAT(plain_.lines[1], EndsWith(", 1 left out."));
    ASSERT_THAT(plain_.warnings, SizeIs(21));
    EXPECT_EQ(plain_.warnings[19], "warning: D:\\: no snapshot");
    EXPECT_EQ(plain_.warnings[20], "warning: 2 more, which --json lists");
    EXPECT_THAT(plain_.errors, IsEmpty());
    EXPECT_THAT(json_.lines[0], HasSubstr(R"("leftOut":[{"path":"C:\\a\nb","reason":"a link"}])"));
}

}  // namespace
}  // namespace dorvo::agent
