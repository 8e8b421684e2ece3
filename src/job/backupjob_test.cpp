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

// Wine's drive Z: is a second volume.
class TwoVolumes : public BackupJobTest {
protected:
    TwoVolumes() {
        write(second_ + L"\\z", "content");
        snapshots_ = true;
        script_.items["z"] = {WSAECONNRESET};
    }
    ~TwoVolumes() override { rm_rf(second_, true); }

    const std::wstring second_ =
        L"Z:\\tmp\\dorvo two volumes " + std::to_wstring(GetCurrentProcessId());
};

TEST_F(TwoVolumes, EachIsReadFromItsSnapshotAfterAResumeToo) {
    for (const std::vector<const wchar_t*>& lost :
         std::vector<std::vector<const wchar_t*>>{{}, {L"1"}, {L"2"}, {L"1", L"2"}}) {
        SCOPED_TRACE(lost.size());
        script_ = {};
        script_.items["z"] = {WSAECONNRESET};
        const auto job = makeBackup({sources(), second_});
        run(*job);
        ASSERT_EQ(job->state(), paused);
        EXPECT_EQ(job->record().volumeIndex, 2);
        for (const wchar_t* record : lost) {
            const std::wstring path = dataPath(L"\\job\\j1\\act\\vol\\") + record;
            EXPECT_NE(DeleteFileW(path.c_str()), 0);
        }
        script_.readFrom.clear();
        run(*job);
        EXPECT_EQ(job->state(), completed);
        ASSERT_EQ(script_.readFrom.size(), 1u);
        EXPECT_EQ(script_.readFrom[0], L"\\\\?\\" + second_ + L"\\z");
        EXPECT_EQ(job->notes(), Names{});
        rm_rf(dataPath(L"\\job"), true);
    }
}

TEST_F(TwoVolumes, OneWithoutASnapshotIsSaidOnce) {
    unsupported_ = L"Z:\\";
    const auto job = makeBackup({sources(), second_});
    const LogCapture log;
    run(*job);
    ASSERT_EQ(job->state(), paused);
    run(*job);
    EXPECT_EQ(job->state(), completed);
    EXPECT_EQ(script_.readFrom.back(), L"");
    EXPECT_EQ(script_.readFrom[1], L"\\\\?\\" + sources() + L"\\a");
    EXPECT_EQ(job->notes(),
              Names{"warning Z:\\ there can be no snapshot of this volume, so its files were read "
                    "while they could change"});
    EXPECT_TRUE(log.begins("No snapshot of volume {Z:\\}, "));
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
