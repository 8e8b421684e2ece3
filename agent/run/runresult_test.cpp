#include "run/runresult.h"

#include <gtest/gtest.h>

#include "base/error_codes.h"
#include "jobdef/backupjobdefinition.h"
#include "jobdef/restorejobdefinition.h"

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
    localRestore.useLocalStorage(L"E:\\x");
    struct Row {
        const JobDefinition& job;
        uint64_t unchanged;
        uint32_t kept;
        uint32_t failed;
        SourceTotals failedOfList;
        std::string text;
    };
    const SourceTotals none{};
    const SourceTotals two{0, 2, 1024};
    const SourceTotals withFolders{6, 3, 2048};
    const SourceTotals one{0, 1, 512};
    const Row rows[] = {
        {backup, 4096, 0, 0, none,
         "3 files sent (2.0 KiB, 700 B over the network), 7 files unchanged (4.0 KiB)."},
        {localBackup, 4096, 0, 2, two,
         "1 file stored (1.0 KiB), 7 files unchanged (4.0 KiB), 2 failed."},
        {backup, 0, 0, 9, withFolders,
         "0 files sent (0 B, 700 B over the network), 7 files unchanged (0 B), 9 failed."},
        {restore, 1024, 1, 1, one,
         "1 file restored (512 B, 700 B over the network), 1 failed, 1 file (1.0 KiB) kept as it "
         "was: --conflict overwrite replaces it."},
        {localRestore, 2048, 3, 0, none,
         "0 files restored (0 B), 3 files (2.0 KiB) kept as they were: --conflict overwrite "
         "replaces them."},
        {localRestore, 0, 0, 0, none, "3 files restored (2.0 KiB)."},
    };
    for (const Row& row : rows) {
        JobActivity record = finished(JobState::completed);
        record.failedItems = row.failed;
        record.unchangedSize = row.unchanged;
        const ExitCode outcome = row.failed == 0 ? exitDone : exitSomeFailed;
        record.keptFiles(row.kept);
        const RunCounts counts{row.job.type() != JobDefinition::backupType, 10, row.failedOfList};
        EXPECT_EQ(runSummary(row.job, resultOf(record, outcome, counts, {})),
                  wordsOf(row.job).verb + " completed in 1:01 (16 B/s): " + row.text);
    }
}

TEST(RunSummary, SaysHowToGoOnOrWhyNot) {
    const RestoreJobDefinition job("", L"docs", "alice");
    const auto summary = [&](ExitCode outcome, JobState state, uint32_t error) {
        JobActivity record = finished(state);
        record.endError = error;
        return runSummary(job, resultOf(record, outcome, {.restores = true}, {}));
    };
    EXPECT_EQ(summary(exitStopped, JobState::paused, 0),
              "Restore is paused at 50%: go on with 'agent resume \"docs\"'.");
    EXPECT_EQ(summary(exitFailed, JobState::error, 0), "Restore failed.");
    EXPECT_EQ(summary(exitFailed, JobState::error, errorKeyForeign),
              "Restore failed: " + keyErrorText(errorKeyForeign, "alice") + ".");
}

}  // namespace
}  // namespace dorvo::agent
