#include "runsummary.h"

#include <gtest/gtest.h>

#include "base/key_error.h"
#include "jobdef/backupjobdefinition.h"
#include "jobdef/restorejobdefinition.h"
#include "runwords.h"

namespace dorvo::agent {
namespace {

JobActivity finished(JobState state) {
    JobActivity record{};
    record.state = static_cast<int32_t>(state);
    record.fileCount = 3;
    record.totalSize = 2048;
    record.doneSize = 1024;
    record.wireSize = 700;
    record.usedTime = 61'0000000;
    return record;
}

TEST(RunSummary, SaysWhatWasDoneAndWhatFailed) {
    BackupJobDefinition backup("", L"", "");
    BackupJobDefinition localBackup("", L"", "");
    localBackup.useLocalStorage(L"E:\\x");
    RestoreJobDefinition restore("", L"", "");
    RestoreJobDefinition localRestore("", L"", "");
    localRestore.setConflict(RestoreJobDefinition::conflictRename);
    localRestore.useLocalStorage(L"E:\\x");
    struct Row {
        const JobDefinition& job;
        uint64_t unchanged;
        uint32_t failed;
        std::string text;
    };
    for (const Row& row : {
             Row{backup, 4096, 0,
                 "3 files sent (2.0 KiB, 700 B over the network), 7 files unchanged (4.0 KiB)."},
             Row{localBackup, 4096, 2,
                 "1 file stored (2.0 KiB), 7 files unchanged (4.0 KiB), 2 failed."},
             // Folders that could not be read count too.
             Row{backup, 0, 9,
                 "0 files sent (2.0 KiB, 700 B over the network), 7 files unchanged (0 B), 9 "
                 "failed."},
             Row{restore, 1024, 1,
                 "2 files restored or kept (2.0 KiB, 700 B over the network), 1.0 KiB of it kept "
                 "as it was, 1 failed."},
             Row{localRestore, 0, 0, "3 files restored (2.0 KiB)."},
         }) {
        JobActivity record = finished(JobState::completed);
        record.failedItems = row.failed;
        record.unchangedSize = row.unchanged;
        const ExitCode outcome = row.failed == 0 ? exitDone : exitSomeFailed;
        const uint32_t walked = row.job.type() == JobDefinition::backupType ? 10 : 0;
        EXPECT_EQ(runSummary(row.job, resultOf(record, outcome, walked, {})),
                  wordsOf(row.job).verb + " completed in 1:01 (16 B/s): " + row.text);
    }
}

TEST(RunSummary, SaysHowToGoOnOrWhyNot) {
    const RestoreJobDefinition job("", L"docs", "alice");
    const auto summary = [&](ExitCode outcome, JobState state, uint32_t error) {
        JobActivity record = finished(state);
        record.endError = error;
        return runSummary(job, resultOf(record, outcome, 0, {}));
    };
    EXPECT_EQ(summary(exitStopped, JobState::paused, 0),
              "Restore is paused at 50%: go on with 'agent resume \"docs\"'.");
    EXPECT_EQ(summary(exitFailed, JobState::error, 0), "Restore failed.");
    EXPECT_EQ(summary(exitFailed, JobState::error, 0x20010000 | 403),
              "Restore failed: HTTP status 403, Forbidden.");
    // A key's error has words of its own.
    EXPECT_EQ(summary(exitFailed, JobState::error, errorKeyForeign),
              "Restore failed: " + keyErrorText(errorKeyForeign, "alice") + ".");
}

}  // namespace
}  // namespace dorvo::agent
