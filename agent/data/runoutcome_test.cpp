#include "data/runoutcome.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace dorvo::agent
