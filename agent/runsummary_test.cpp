#include "runsummary.h"

#include <gtest/gtest.h>

namespace dorvo::agent {
namespace {

JobActivity finished(JobState state) {
    JobActivity record{};
    record.state = static_cast<int32_t>(state);
    record.fileCount = 3;
    record.totalSize = 2048;
    record.doneSize = 1024;
    record.wireSize = 700;
    record.unchangedSize = 4096;
    record.usedTime = 61'0000000;
    return record;
}

TEST(RunSummary, SaysWhatWasDoneAndWhatFailed) {
    JobActivity record = finished(JobState::completed);
    EXPECT_EQ(runSummary("Backup", "docs", exitDone, record, 10),
              "Backup completed in 1:01: 3 files sent (2.0 KiB, 700 B over the network), 7 files "
              "unchanged (4.0 KiB).");
    record.failedItems = 2;
    EXPECT_EQ(runSummary("Backup", "docs", exitSomeFailed, record, 10),
              "Backup completed in 1:01: 1 file sent (2.0 KiB, 700 B over the network), 7 files "
              "unchanged (4.0 KiB), 2 failed.");
    record.failedItems = 9;  // folders that could not be read count too
    EXPECT_NE(runSummary("Backup", "docs", exitSomeFailed, record, 10).find(" 0 files sent"),
              std::string::npos);
}

TEST(RunSummary, SaysHowToGoOn) {
    EXPECT_EQ(runSummary("Backup", "docs", exitStopped, finished(JobState::paused), 10),
              "Backup is paused at 50%: go on with 'agent resume \"docs\"'.");
    EXPECT_EQ(runSummary("Backup", "docs", exitStopped, finished(JobState::cancelled), 10),
              "Backup is cancelled.");
}

TEST(RunSummary, NamesTheFailure) {
    JobActivity record = finished(JobState::error);
    EXPECT_EQ(runSummary("Backup", "docs", exitFailed, record, 10), "Backup failed.");
    record.endError = 0x20010000 | 403;
    EXPECT_EQ(runSummary("Backup", "docs", exitFailed, record, 10),
              "Backup failed: HTTP status 403, Forbidden.");
    record.endError = 10061;
    EXPECT_NE(runSummary("Backup", "docs", exitFailed, record, 10).find("(error 10061)."),
              std::string::npos);
}

}  // namespace
}  // namespace dorvo::agent
