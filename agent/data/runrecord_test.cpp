#include "data/runrecord.h"

#include <gtest/gtest.h>

#include "text/format.h"

namespace dorvo::agent {
namespace {

TEST(RunOutcome, EveryStateHasItsExitCode) {
    struct Row {
        JobState state;
        uint32_t manually;
        uint32_t failed;
        std::optional<ExitCode> code;
        bool unfinished;
    };
    for (const Row& row : {
             Row{JobState::none, 0, 0, exitFailed, false},
             Row{JobState::idle, 0, 0, std::nullopt, false},
             Row{JobState::running, 0, 2, std::nullopt, true},
             Row{JobState::pausing, 1, 0, std::nullopt, true},
             Row{JobState::paused, 0, 0, std::nullopt, true},
             Row{JobState::paused, 1, 0, exitStopped, true},
             Row{JobState::completed, 0, 0, exitDone, false},
             Row{JobState::completed, 0, 1, exitSomeFailed, false},
             Row{JobState::completed, 1, 0, exitDone, false},
             Row{JobState::canceling, 0, 0, std::nullopt, false},
             Row{JobState::cancelled, 0, 1, exitStopped, false},
             Row{JobState::error, 0, 0, exitFailed, false},
             Row{static_cast<JobState>(4711), 0, 0, exitFailed, false},
         }) {
        JobActivity record{};
        record.state = static_cast<int32_t>(row.state);
        record.pausedManually = row.manually;
        record.failedItems = row.failed;
        EXPECT_EQ(outcomeOf(record), row.code) << record.state;
        EXPECT_EQ(unfinished(record), row.unfinished) << record.state;
        EXPECT_EQ(waitsForServer(record), row.state == JobState::paused && row.manually == 0);
    }
}

const Progress half{.percent = 50,
                    .files = 12,
                    .fileCount = 120,
                    .bytes = 1258291,
                    .totalBytes = 2516582,
                    .bytesPerSecond = 1048576,
                    .secondsLeft = 75,
                    .file = "C:\\data\\folder\\some longer name of a file.txt"};

TEST(Progress, LineHasAllFiguresAndWhatFitsOfTheFile) {
    EXPECT_EQ(progressLine(half, 200),
              " 50%  12/120 files  1.2 MiB of 2.4 MiB  1.0 MiB/s  1:15 left  " + half.file);
    const std::string narrow = progressLine(half, 80);
    EXPECT_EQ(columnsOf(narrow), 80U);
    EXPECT_TRUE(narrow.ends_with(".txt"));
    for (size_t width = 1; width < 100; ++width) {
        EXPECT_LE(columnsOf(progressLine(half, width)), width);
    }
}

TEST(Progress, ComesFromTheRecordAndSurvivesADamagedOne) {
    JobActivity record{};
    record.reset(static_cast<int32_t>(JobState::running), true);
    record.totalSize = 1000;
    record.doneSize = 400;
    record.fileOffset = 100;
    record.fileCount = 3;
    EXPECT_EQ(progressOf(record).bytes, 500U);
    EXPECT_EQ(progressOf(record).secondsLeft, std::nullopt);  // nothing says how fast it is
    record.usedTime = 40'000'000;
    EXPECT_EQ(progressOf(record).secondsLeft, 5U);
    record.usedTime = 1000 * record.usedTime;
    EXPECT_EQ(progressOf(record).secondsLeft, std::nullopt) << "less than a byte a second";
    record.doneSize = 5000;
    record.fileIndex = 9;
    record.usedTime = 0;
    EXPECT_EQ(progressOf(record).secondsLeft, 0U) << "nothing is left";
    EXPECT_EQ(progressOf(record).percent, 100);
    EXPECT_EQ(progressOf(record).bytes, 1000U);
    EXPECT_EQ(progressOf(record).files, 3U);
}

}  // namespace
}  // namespace dorvo::agent
