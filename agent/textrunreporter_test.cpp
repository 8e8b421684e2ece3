#include "textrunreporter.h"

#include <gmock/gmock.h>

#include "faketerminal.h"
#include "jobdef/backupjobdefinition.h"
#include "units.h"

namespace dorvo::agent {
namespace {

using testing::ElementsAre;
using testing::StartsWith;

class TextRunReporterTest : public testing::Test {
protected:
    void show(JobState state, uint64_t nowMs) {
        record_.state = static_cast<int32_t>(state);
        reporter_.show(record_, nowMs);
        liveReporter_.show(record_, nowMs);
    }

    JobActivity record_{};
    FakeTerminal plain_;
    FakeTerminal live_{true};
    BackupJobDefinition job_{"", L"", ""};
    TextRunReporter reporter_{plain_, job_};
    TextRunReporter liveReporter_{live_, job_};
};

TEST_F(TextRunReporterTest, SaysEachChangeOnceAndTheProgressNowAndThen) {
    record_.fileCount = 2;
    record_.totalSize = 2048;
    record_.doneSize = 1024;
    show(JobState::starting, 0);
    show(JobState::starting, 100);
    show(JobState::running, 200);
    show(JobState::running, 10'199);
    show(JobState::running, 10'200);
    show(JobState::running, 10'300);
    show(JobState::completing, 10'400);
    show(JobState::completed, 10'500);
    EXPECT_THAT(plain_.lines, ElementsAre("Backup is looking for what has changed.",
                                          "Backup is running: 2 files, 2.0 KiB to send.",
                                          StartsWith(" 50%"), "Backup is completing."));
    EXPECT_TRUE(plain_.statuses.empty());
}

TEST_F(TextRunReporterTest, SaysAtEachPauseOfItsOwnThatItWaitsAndWhy) {
    const std::string waiting = "Backup is paused, waiting for the server, next try in ";
    show(JobState::running, 0);
    show(JobState::pausing, 100);
    show(JobState::paused, 1000);
    // The reason comes by another way than the state, and may come later.
    reporter_.reason("connection refused");
    liveReporter_.reason("connection refused");
    show(JobState::paused, 1000);
    show(JobState::paused, 11'000);
    show(JobState::paused, 99'000);
    record_.resuming = 1;
    // It may also be there before the beginning of the run is seen.
    reporter_.reason("timed out");
    show(JobState::starting, 99'100);
    show(JobState::paused, 99'200);
    EXPECT_THAT(plain_.lines,
                ElementsAre(StartsWith("Backup is running"), "Backup is pausing.",
                            waiting + "30 s (connection refused).",
                            "Backup goes on where it stopped.", waiting + "30 s (timed out)."));
    ASSERT_EQ(live_.statuses.size(), 8U);
    EXPECT_EQ(live_.statuses[2], waiting + "30 s");
    EXPECT_EQ(live_.statuses[4], shortened(waiting + "20 s (connection refused)", 79));
    EXPECT_EQ(live_.statuses[5], shortened(waiting + "0 s (connection refused)", 79));
    EXPECT_TRUE(live_.lines.empty());
}

TEST_F(TextRunReporterTest, APauseOfTheUserIsNoWait) {
    record_.pausedManually = 1;
    show(JobState::paused, 0);
    EXPECT_TRUE(plain_.lines.empty());
    EXPECT_THAT(live_.statuses, ElementsAre(""));
}

}  // namespace
}  // namespace dorvo::agent
