#include "data/jobview.h"

#include <gmock/gmock.h>

#include "base/files.h"
#include "base/local_time.h"
#include "base/paths.h"
#include "base/text.h"
#include "data/runrecord.h"
#include "jobdef/backupjobdefinition.h"
#include "jobdef/restorejobdefinition.h"
#include "record/jobhistory.h"
#include "record/jobhistoryinfo.h"
#include "record/jobwait.h"
#include "text/format.h"

namespace dorvo::agent {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class JobViewTest : public testing::Test {
protected:
    JobViewTest() {
        job_.setSource({L"C:\\a", L"C:\\\u00E4"});
        job_.setFilter(2, {L"tmp"});
        view_.job = &job_;
        view_.recorded = true;
        set(JobState::running);
    }
    void set(JobState state) { view_.record.state = static_cast<int32_t>(state); }

    BackupJobDefinition job_{"id", L"docs", "alice"};
    JobView view_;
};

TEST_F(JobViewTest, JsonHasProgressOfUnfinishedRunsOnly) {
    const auto text = [&] {
        return json_spirit::write(json_spirit::Ordered_value(summaryJson(view_)));
    };
    view_.record.totalSize = 10;
    view_.record.doneSize = 5;
    EXPECT_EQ(text(),
              R"({"id":"id","name":"docs","user":"alice","type":"backup","storage":"web",)"
              R"("state":"interrupted","nextRun":"","lastCompleted":"",)"
              R"("overdue":false,"live":false,"progress":50,"files":0,"fileCount":0,"bytes":5,)"
              R"("totalBytes":10,"speed":0,"remainTime":null,"file":""})");
    view_.wait = {.reason = "no way", .since = ticksOfText("2026-01-02 03:04:05"), .until = 0};
    EXPECT_THAT(text(), EndsWith(R"("reason":"no way","since":"2026-01-02 03:04:05","until":""})"));
    EXPECT_THAT(waitText(view_), EndsWith(": no way."));
    view_.record.pausedManually = 1;
    EXPECT_EQ(waitText(view_), "");
    set(JobState::completed);
    view_.live = true;
    EXPECT_THAT(text(), EndsWith(R"("overdue":false,"live":true})"));
}

TEST_F(JobViewTest, ARunThatWaitsForAnAnswerSaysSo) {
    view_.record.currentFileState = static_cast<uint32_t>(CurrentFileState::awaited);
    EXPECT_THAT(waitOf(job_, view_.record, false).reason, HasSubstr("its process has ended"));
    view_.live = true;
    view_.wait = waitOf(job_, view_.record, view_.live);
    EXPECT_THAT(detailText(view_, {}), HasSubstr("Waits    the server works on the run"));
    EXPECT_EQ(waitText(view_), "") << "a warning for what is in order";
    view_.record.currentFileState = static_cast<uint32_t>(CurrentFileState::transfer);
    EXPECT_EQ(waitOf(job_, view_.record, true).reason, "");
}

TEST_F(JobViewTest, APausedRunSaysWhyItWaitsAndUntilWhen) {
    struct Row {
        bool byUser;
        uint32_t error;
        bool live;
        const char* reason;
        bool until;
    };
    const Row rows[] = {
        {false, 0, true, "interrupted when its agent ended", true},
        {false, 10061, true, "nobody answers at ", true},
        {false, 10061, false, "nobody answers at ", false},
        {false, 0x200101F7, true, "the server says: no room (HTTP status 503", true},
        {false, 0x200101F8, true, "HTTP status 504", true},
        {true, 10061, true, "paused by the user", false}};
    set(JobState::paused);
    ASSERT_TRUE(saveWaitWords(job_.id(), 0x200101F7, "no room"));
    std::wstring folder;
    ASSERT_TRUE(jobDirectory(job_.id(), folder));
    constexpr uint64_t since = 133'536'640'890'000'000;
    view_.record.instanceId.fill(7);
    ASSERT_TRUE(saveWait(job_.id(), utcTimeNow() + 3600 * ticksPerSecond));
    JobHistoryInfo(toUtf8(jobHistoryInfoPath(folder, instanceIdOf(view_.record))))
        .endtime(toFileTime(since));
    for (const Row& row : rows) {
        view_.record.pausedManually = row.byUser ? 1 : 0;
        view_.record.endError = row.error;
        const RunWait wait = waitOf(job_, view_.record, row.live);
        EXPECT_THAT(wait.reason, StartsWith(row.reason));
        EXPECT_EQ(wait.until != 0, row.until) << row.reason << row.live;
        EXPECT_EQ(wait.since, since);
    }
    ASSERT_TRUE(saveWait(job_.id(), utcTimeNow() - ticksPerSecond));
    view_.record.pausedManually = 0;
    EXPECT_EQ(waitOf(job_, view_.record, true).until, 0u) << "it may be late";
    set(JobState::completed);
    EXPECT_EQ(waitOf(job_, view_.record, false).reason, "");
    EXPECT_TRUE(rm_rf(folder, true));
}

TEST_F(JobViewTest, DetailsHaveDefinitionAndRuns) {
    set(JobState::completed);
    std::vector<PastRun> runs(1);
    runs[0].instanceId = "i";
    runs[0].failed = {{"C:\\a\\b", 5, "denied"}};
    runs[0].notes.leftOut = {{"C:\\a\\link", "a link"}};
    const std::string json =
        json_spirit::write(json_spirit::Ordered_value(detailJson(view_, runs)));
    EXPECT_THAT(json,
                HasSubstr("\"source\":[\"C:\\\\a\",\"C:\\\\\xC3\xA4\"],\"filter\":\"skip\","
                          R"("extensions":["tmp"],"compress":true,"schedule":{"kind":"manual"},)"
                          R"("runs":[{"instanceId":"i",)"));
    EXPECT_THAT(json, HasSubstr(R"("failed":[{"path":"C:\\a\\b","code":5,"reason":"denied"}])"));
    EXPECT_THAT(json, HasSubstr(R"("leftOut":[{"path":"C:\\a\\link","reason":"a link"}])"));
    EXPECT_THAT(detailText(view_, runs), HasSubstr("failed: C:\\a\\b: denied\n"));
    EXPECT_THAT(detailText(view_, runs), HasSubstr("left out: C:\\a\\link: a link\n"));
}

TEST(JobView, OfARestoreSaysWhatComesBackAndWhereTo) {
    RestoreJobDefinition job("id", L"restore docs", "alice");
    job.setOrigin("PC", "j", "i");
    job.setConflict(4711);  // anything unknown overwrites
    job.useLocalStorage(L"E:\\safe");
    const JobView view{.job = &job};
    EXPECT_EQ(json_spirit::write(json_spirit::Ordered_value(detailJson(view, {}))),
              R"({"id":"id","name":"restore docs","user":"alice","type":"restore",)"
              R"("storage":"local","state":"none","nextRun":"","lastCompleted":"",)"
              R"("overdue":false,"live":false,"location":"E:\\safe","source":[],"machine":"PC",)"
              R"("jobdefinitionid":"j","jobinstanceid":"i","target":"","prefix":"",)"
              R"("conflict":"overwrite","runs":[]})");
    job.setSource({L"C:\\a", L"C:\\b"});
    job.setTarget(L"D:\\x\\", L"C:");
    EXPECT_EQ(
        detailText(view, {}),
        "Job      restore docs\nId       id\nType     restore of user alice, in E:\\safe\n"
        "Paths    C:\\a\n         C:\\b\nFrom     run i\n         of job j on machine PC\n"
        "To       D:\\x\\ in place of C:\nConflict overwrite\nState    none, has never completed\n"
        "No finished runs\n");
}

}  // namespace
}  // namespace dorvo::agent
