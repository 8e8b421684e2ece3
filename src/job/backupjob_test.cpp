#include "job/backupjob.h"

#include "job/scripted_job.h"

namespace dorvo {
namespace {

using namespace test;

class BackupJobTest : public ScriptedJobTest {};

TEST_F(BackupJobTest, ReadsFilesFromWhereTheyAre) {
    for (const bool snapshots : {false, true}) {
        SCOPED_TRACE(snapshots);
        script_ = {};
        snapshots_ = snapshots;
        const auto job = makeBackup();
        run(*job);
        EXPECT_EQ(job->state(), completed);
        ASSERT_EQ(script_.readFrom.size(), 4u);
        EXPECT_EQ(script_.readFrom[0], L"") << "a directory has nothing to read";
        EXPECT_EQ(script_.readFrom[1], snapshots ? L"\\\\?\\" + sources() + L"\\a" : L"");
        EXPECT_EQ(job->history().at("type").get_str(), "backup");
    }
}

TEST_F(BackupJobTest, ASourceThatIsNotThereIsAFailedItemOnce) {
    script_.list = {WSAECONNRESET};
    // The first has no volume.
    const auto job =
        makeBackup({L"\\\\?\\none", sources() + L"\\x", sources() + L"\\y", sources()});
    run(*job);
    EXPECT_EQ(job->state(), paused);
    EXPECT_EQ(job->record().failedItems, 3u);
    run(*job);
    EXPECT_EQ(job->state(), completed);
    EXPECT_EQ(job->errors(), (Names{"none 3 ", "x 2 ", "y 2 "}));
    EXPECT_EQ(job->record().failedItems, 3u);
}

TEST_F(BackupJobTest, APackageGoesWithItsItem) {
    const auto job = makeBackup();
    const std::wstring package = itemTempPath(itemTempFolder("j1"), 3);
    script_.items["b"] = {ERROR_CANCELLED};
    script_.onItem = [&](const std::string& name) {
        if (name == "b") {
            write(package, "half a package");
            EXPECT_TRUE(job->pause(true));
        }
    };
    run(*job);
    EXPECT_EQ(job->state(), paused);
    EXPECT_FALSE(exists(package));
}

}  // namespace
}  // namespace dorvo
