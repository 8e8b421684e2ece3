#include "jsonrunreporter.h"

#include <gmock/gmock.h>

#include "faketerminal.h"
#include "jobdef/backupjobdefinition.h"

namespace dorvo::agent {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

class JsonRunReporterTest : public testing::Test {
protected:
    void show(JobState state, uint64_t nowMs) {
        record_.state = static_cast<int32_t>(state);
        reporter_.show(record_, nowMs);
    }
    std::vector<std::string> states() const {
        std::vector<std::string> found;
        for (const std::string& line : terminal_.lines) {
            json_spirit::Value value;
            json_spirit::read_or_throw(line, value);
            found.push_back(json_spirit::object_get_str_or_throw(value.get_obj(), "state"));
        }
        return found;
    }

    JobActivity record_{};
    FakeTerminal terminal_;
    BackupJobDefinition job_{"id", L"docs", "alice"};
    JsonRunReporter reporter_{terminal_, job_};
};

TEST_F(JsonRunReporterTest, ALineAtEachChangeAndAtMostTwiceASecond) {
    record_.fileCount = 2;
    record_.totalSize = 2048;
    record_.doneSize = 1024;
    show(JobState::starting, 0);
    show(JobState::running, 100);
    show(JobState::running, 599);
    show(JobState::running, 600);
    show(JobState::completing, 700);
    EXPECT_THAT(states(), ElementsAre("starting", "running", "running", "completing"));
    EXPECT_EQ(terminal_.lines[1],
              R"({"id":"id","name":"docs","state":"running","percent":50,"bytes":1024,)"
              R"("totalBytes":2048,"files":0,"fileCount":2,"speed":0,"remainTime":1,"file":""})");
}

TEST_F(JsonRunReporterTest, AWaitIsOneLineAndOneMoreForItsReason) {
    show(JobState::paused, 0);
    show(JobState::paused, 5000);
    reporter_.reason("no answer");
    show(JobState::paused, 5001);
    show(JobState::paused, 9000);
    EXPECT_THAT(terminal_.lines,
                ElementsAre(EndsWith(R"("file":""})"), EndsWith(R"("reason":"no answer"})")));
}

TEST_F(JsonRunReporterTest, TheSummaryHasWhatWasDoneAndWhatFailed) {
    record_.state = static_cast<int32_t>(JobState::completed);
    record_.fileCount = 3;
    record_.totalSize = 300;
    record_.doneSize = 200;
    record_.wireSize = 70;
    record_.usedTime = 2'0000000;
    record_.failedItems = 1;
    reporter_.finish(resultOf(record_, exitSomeFailed, 10, {{"C:\\a", 5, "denied"}}));
    EXPECT_THAT(
        terminal_.lines,
        ElementsAre(R"({"id":"id","name":"docs","summary":{"state":"completed","exitCode":3,)"
                    R"("instanceId":"00000000-0000-0000-0000-000000000000","files":2,"bytes":300,)"
                    R"("unchangedFiles":7,"unchangedBytes":0,"wireBytes":70,"speed":100,)"
                    R"("duration":2,"failed":[{"path":"C:\\a","code":5,"reason":"denied"}]}})"));
    EXPECT_THAT(terminal_.errors, IsEmpty());
    record_.state = static_cast<int32_t>(JobState::error);
    record_.endError = 0x20010000 | 401;
    reporter_.finish(resultOf(record_, exitFailed, 10, {}));
    EXPECT_THAT(terminal_.lines.back(), HasSubstr(R"("error":"the server refused the session)"));
    // Errors stay texts for people too.
    EXPECT_THAT(terminal_.errors, ElementsAre(HasSubstr("run 'agent login alice'")));
}

}  // namespace
}  // namespace dorvo::agent
