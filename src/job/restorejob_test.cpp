#include "job/restorejob.h"

#include "job/runtotals.h"
#include "job/scripted_job.h"

namespace dorvo {
namespace {

using namespace test;

class RestoreJobTest : public ScriptedJobTest {};

TEST_F(RestoreJobTest, ComposesItsTargetsAndTellsTheStorageHowItWent) {
    const auto job = makeRestore();
    run(*job);
    EXPECT_EQ(script_.targets, (std::vector<std::wstring>{target() + L"\\", target() + L"\\a",
                                                          target() + L"\\b", target() + L"\\c"}));
    EXPECT_EQ(script_.history.at("type").get_str(), "restore");
    EXPECT_EQ(script_.history.at("filescount").get_int64(), 3);
}

// Its files are in their places, whatever the service makes of the history.
TEST_F(RestoreJobTest, AnEndThatCannotBeToldHoldsUpNoRestoreForEver) {
    struct Row {
        DWORD error;
        bool refusal;
    };
    const Row rows[] = {{0x20010190, true},     {0x20010194, true},      {0x20010199, true},
                        {0x200101F4, false},    {0x200101F7, false},     {0x20010191, false},
                        {WSAECONNRESET, false}, {WSAECONNREFUSED, false}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.error);
        anew();
        script_.end.assign(endTries, row.error);
        const auto job = makeRestore();
        for (unsigned i = 1; i < (row.refusal ? 1 : endTries); ++i) {
            run(*job);
            ASSERT_EQ(job->state(), paused) << i;
            EXPECT_EQ(job->record().endError, row.error);
            script_.start = {0x20010194};  // the backup is gone: nothing of it is needed any more
        }
        run(*job, completed);
        EXPECT_EQ(job->lastRunState(), completed);
        EXPECT_EQ(job->record().endError, 0u);
        EXPECT_EQ(script_.count("start"), 1u);
        EXPECT_EQ(script_.count("cancel"), 0u);
        EXPECT_EQ(script_.stored(), (Names{"sources", "a", "b", "c"}));
        EXPECT_TRUE(log_->begins("Job {j1, job} is completed, but its storage does not take"));
    }
}

TEST_F(RestoreJobTest, ConflictsAreNoErrors) {
    struct Row {
        const char* name;
        int32_t conflict;
        bool meanwhile;  // the file appears only after its place was chosen
        Names stored;
        const wchar_t* restored;  // where "a" comes to lie; null: nowhere
    };
    const Row rows[] = {
        {"keep", 1, false, {"b", "c"}, nullptr},
        {"keep, meanwhile", 1, true, {"sources", "a", "b", "c"}, nullptr},
        {"overwrite", 2, false, {"sources", "a", "b", "c"}, L"\\a"},
        {"overwrite, meanwhile", 2, true, {"sources", "a", "b", "c"}, L"\\a"},
        {"rename", 3, false, {"sources", "a", "b", "c"}, L"\\a.0"},
        {"rename, meanwhile", 3, true, {"sources", "a", "a", "b", "c"}, L"\\a.0"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        anew();
        const auto appear = [&](const std::string& name) {
            if (name == "a" && !exists(target() + L"\\a")) {
                write(target() + L"\\a", "mine");
            }
        };
        if (row.meanwhile) {
            script_.onItem = appear;
        } else {
            appear("a");
        }
        const auto job = makeRestore(row.conflict);
        run(*job, completed);
        EXPECT_EQ(script_.stored(), row.stored);
        EXPECT_TRUE(job->errors().empty());
        EXPECT_EQ(job->record().doneSize, 21u) << "what is left out is done";
        EXPECT_EQ(job->record().unchangedSize, row.conflict == 1 ? 7u : 0u);
        EXPECT_EQ(job->record().keptFiles(), row.conflict == 1 ? 1u : 0u);
        EXPECT_EQ(contentOf(target() + L"\\a"), row.conflict == 2 ? "C:\\sources\\a" : "mine");
        if (row.restored != nullptr) {
            EXPECT_EQ(contentOf(target() + row.restored), "C:\\sources\\a");
        }
    }
}

TEST_F(RestoreJobTest, NothingLeavesTheChosenFolder) {
    script_.catalog = {item(L"C:\\sources", true), item(L"C:\\sources\\..\\x"),
                       item(L"C:\\sources\\a:stream"), item(L"C:\\other\\y"),
                       item(L"C:\\sources\\c")};
    const auto job = makeRestore();
    run(*job, completed);
    EXPECT_EQ(script_.stored(), (Names{"sources", "c"}));
    EXPECT_EQ(job->errors(), (Names{"x 161 the path has \".\" or \"..\" in it",
                                    "a:stream 161 a name in the path has a colon in it",
                                    "y 161 the item is not below the prefix of the restore"}));
}

TEST_F(RestoreJobTest, AFileThatIsInItsPlaceIsNotPlacedAgain) {
    struct Row {
        int32_t conflict;
        bool changed;  // by somebody, before the run goes on
        Names found;
    };
    const std::string mine = "C:\\sources\\b";
    for (const Row& row : {Row{1, false, {mine, ""}}, Row{2, false, {mine, ""}},
                           Row{3, false, {mine, ""}}, Row{3, true, {"changed", mine}}}) {
        SCOPED_TRACE(row.conflict);
        anew();
        script_.cutOff = "b";
        {
            const auto job = makeRestore(row.conflict);
            run(*job, paused);
        }
        if (row.changed) {
            write(target() + L"\\b", "changed");
        }
        const size_t asked = script_.count("C:\\sources\\b");
        const auto job = makeRestore(row.conflict);  // of another process
        ASSERT_TRUE(job->init());
        run(*job, completed);
        EXPECT_EQ(script_.count("C:\\sources\\b") - asked, row.changed ? 1u : 0u);
        EXPECT_EQ((Names{contentOf(target() + L"\\b"), contentOf(target() + L"\\b.0")}), row.found);
        EXPECT_EQ(job->record().keptFiles(), 0u);
        EXPECT_FALSE(exists(dataPath(L"\\restoring\\j1")));
    }
}

// The service may list in another order, and the record goes by numbers.
TEST_F(RestoreJobTest, AListThatIsMadeAnewForgetsWhatTheLostOneHasPlaced) {
    script_.cutOff = "b";
    {
        const auto job = makeRestore(1);
        run(*job, paused);
    }
    ASSERT_NE(DeleteFileW(list().c_str()), 0);
    std::swap(script_.catalog[2], script_.catalog[3]);
    const auto job = makeRestore(1);
    ASSERT_TRUE(job->init());
    run(*job, completed);
    EXPECT_EQ(contentOf(target() + L"\\c"), "C:\\sources\\c");
}

TEST_F(RestoreJobTest, WhatAKilledRunLeftBesideItsTargetGoes) {
    const std::wstring left = target() + L"\\~111111111111-3.tmp";
    const auto leave = [&](const char* job) {
        write(left, "readable");
        PlacingRecord(job).announce({17, 17, 17, 17, 17, 17}, 3, left);
    };
    leave("j1");
    ASSERT_TRUE(makeRestore()->init());
    EXPECT_FALSE(exists(left)) << "at the next start";
    leave("j1");
    const auto job = makeRestore();
    script_.onItem = [&](const std::string& name) { EXPECT_TRUE(name != "b" || job->stop()); };
    run(*job, cancelled);
    EXPECT_FALSE(exists(left)) << "with the run";
    script_.onItem = nullptr;
    leave("gone");
    run(*job);
    EXPECT_FALSE(exists(left)) << "at the next restore";
    EXPECT_FALSE(exists(dataPath(L"\\restoring\\gone")));
}

TEST_F(RestoreJobTest, NothingIsAskedForWithoutAPlaceToRestoreTo) {
    const auto job = makeRestore();
    auto away = std::make_unique<RestoreJobDefinition>(
        static_cast<const RestoreJobDefinition&>(job->definition()));
    away->setTarget(L"Q:\\to\\", prefix_);
    job->definition(std::move(away));
    run(*job, failed);
    EXPECT_EQ(job->record().endError, DWORD{ERROR_INVALID_DRIVE});
    EXPECT_EQ(script_.listed, 0u);
    EXPECT_TRUE(job->errors().empty());
}

TEST_F(RestoreJobTest, CountsWhatFailedAndWhatARunHasComePast) {
    script_.items["a"] = {ERROR_ACCESS_DENIED};
    script_.catalog = {item(L"C:\\sources", true), item(L"C:\\sources\\a"),
                       item(L"C:\\sources\\d", true), item(L"C:\\sources\\b"),
                       item(L"C:\\sources\\c")};
    script_.items["d"] = {ERROR_ACCESS_DENIED};
    const auto job = makeRestore();
    script_.onItem = [&](const std::string& name) { EXPECT_TRUE(name != "b" || job->stop()); };
    run(*job, cancelled);
    EXPECT_EQ(loadFailedTotals(dataPath(L"\\job\\j1")), (SourceTotals{1, 1, 7}));
    EXPECT_EQ(script_.history.at("filescount").get_int64(), 2);
    EXPECT_EQ(script_.history.at("totalsize").get_int64(), 14);
    script_.onItem = nullptr;
    run(*job);
    EXPECT_EQ(loadFailedTotals(dataPath(L"\\job\\j1")), SourceTotals());
    EXPECT_EQ(script_.history.at("filescount").get_int64(), 3);
}

TEST_F(RestoreJobTest, AListThatCannotBeMadeEndsTheRunUnlessTheHostWaitsForItsServer) {
    struct Row {
        bool waits;
        DWORD error;
    };
    // Also what would pass ends it: nothing is known yet that would be worth keeping.
    for (const Row& row : {Row{true, WSAECONNREFUSED}, Row{true, WSAECONNRESET},
                           Row{false, WSAECONNRESET}, Row{false, 0x20010194}}) {
        SCOPED_TRACE(testing::Message() << row.waits << " " << row.error);
        anew();
        waitForServer_ = row.waits;
        script_.list = {0, row.error};
        const auto job = makeRestore();
        run(*job, row.waits ? paused : failed);
        EXPECT_EQ(job->record().endError, row.error);
        EXPECT_EQ(script_.calls, row.waits ? Names{} : Names{"cancel"});
        if (row.waits) {
            run(*job, completed);
            EXPECT_EQ(script_.stored(), (Names{"sources", "a", "b", "c"}));
        } else {
            EXPECT_EQ(script_.history.at("state").get_str(), "error");
            EXPECT_FALSE(exists(list()));
        }
    }
}

TEST_F(RestoreJobTest, AStopOrPauseWhileListingIsNoFailure) {
    for (const bool stop : {true, false}) {
        SCOPED_TRACE(stop);
        anew();
        script_.list = {ERROR_CANCELLED};
        const auto job = makeRestore();
        script_.onList = [&] { EXPECT_TRUE(stop ? job->stop() : job->pause(true)); };
        run(*job, stop ? cancelled : paused);
        EXPECT_EQ(script_.calls, stop ? Names{"cancel"} : Names{});
        script_.onList = nullptr;
        run(*job, completed);
        EXPECT_EQ(script_.stored(), (Names{"sources", "a", "b", "c"}));
    }
}

TEST_F(RestoreJobTest, DirectoriesHaveTheirTimesAfterTheirFiles) {
    script_.catalog = {item(L"C:\\sources", true), item(L"C:\\sources\\d", true),
                       item(L"C:\\sources\\d\\a"), item(L"C:\\sources\\e", true)};
    script_.items["e"] = {ERROR_ACCESS_DENIED};
    const auto job = makeRestore();
    run(*job, completed);
    for (const wchar_t* name : {L"", L"\\d"}) {
        WIN32_FILE_ATTRIBUTE_DATA data{};
        ASSERT_TRUE(GetFileAttributesExW((target() + name).c_str(), GetFileExInfoStandard, &data));
        EXPECT_EQ(toTicks(data.ftLastWriteTime), toTicks(item(L"").data.ftLastWriteTime)) << name;
    }
    EXPECT_EQ(job->errors(), Names{"e 5 "}) << "failed once";
}

TEST_F(RestoreJobTest, FoldersThatWereThereStayAsTheyAre) {
    const auto written = [&](const wchar_t* name) {
        WIN32_FILE_ATTRIBUTE_DATA data{};
        GetFileAttributesExW((target() + name).c_str(), GetFileExInfoStandard, &data);
        return toTicks(data.ftLastWriteTime);
    };
    const uint64_t backedUp = toTicks(item(L"").data.ftLastWriteTime);
    for (const int32_t conflict : {1, 2, 3}) {
        SCOPED_TRACE(conflict);
        anew();
        script_.catalog = {item(L"C:\\sources", true), item(L"C:\\sources\\made", true),
                           item(L"C:\\sources\\there", true), item(L"C:\\sources\\z", true),
                           item(L"C:\\sources\\z\\a")};
        ASSERT_TRUE(createDirectories(target() + L"\\there"));
        script_.items["a"] = {WSAECONNRESET};
        // Killed between making the folder and coming past it, as far as that can be told.
        script_.items["made"] = {WSAECONNRESET};
        {
            const auto job = makeRestore(conflict);
            run(*job);
            ASSERT_TRUE(createDirectories(target() + L"\\made"));
            run(*job, paused);
        }
        const auto job = makeRestore(conflict);
        run(*job, completed);
        EXPECT_EQ(written(L"\\made"), backedUp);
        EXPECT_EQ(written(L"\\z"), backedUp);
        EXPECT_EQ(written(L"\\there") == backedUp, conflict != 1);
        EXPECT_EQ(script_.count("C:\\sources\\there"), conflict == 1 ? 0u : 1u);
        EXPECT_EQ(script_.count("C:\\sources\\made"), 2u);
        // To another run, what this one has made was there.
        write(target() + L"\\made\\mine", "");
        run(*job, completed);
        EXPECT_EQ(written(L"\\made") == backedUp, conflict != 1);
    }
}

TEST_F(RestoreJobTest, AFullDiskIsOneWithoutRoomForWhatIsLeftOfTheFile) {
    constexpr uint64_t spare = uint64_t{16} << 20;                             // of each disk
    const std::pair<uint64_t, uint64_t> rows[] = {{1'000'000, 60}, {100, 0}};  // small: no file
    for (const auto& [package, left] : rows) {
        for (const uint64_t missing : {0U, 1U}) {
            SCOPED_TRACE(std::to_string(package) + ' ' + std::to_string(missing));
            anew();
            script_.room = 2 * spare + left + 7 - missing;
            script_.items["b"] = {ERROR_DISK_FULL};
            const auto job = makeRestore();
            script_.onItem = [&, &package = package](const std::string& name) {
                job->record().packageSize = name == "b" ? package : 0;
                job->record().fileOffset = name == "b" ? package - 60 : 0;
            };
            run(*job, missing == 0 ? completed : paused);
            ASSERT_EQ(script_.needs.size(), 2u);
            EXPECT_EQ(script_.needs[0].folder, itemTempFolder("j1"));
            EXPECT_EQ(script_.needs[1].folder, target() + L"\\b");
        }
    }
}

TEST_F(RestoreJobTest, ADriveDoesNotHideTheFolderThatTakesItIn) {
    for (const wchar_t* prefix : {L"", L"C:\\"}) {
        SCOPED_TRACE(toUtf8(prefix));
        anew();
        prefix_ = prefix;
        script_.catalog = {item(L"C:", true), item(L"C:\\d", true)};
        script_.catalog[0].data.dwFileAttributes |= FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
        const auto job = makeRestore();
        run(*job, completed);
        EXPECT_TRUE(job->errors().empty());
        EXPECT_EQ(script_.stored(), Names{"d"});
        WIN32_FILE_ATTRIBUTE_DATA data{};
        ASSERT_TRUE(GetFileAttributesExW(target().c_str(), GetFileExInfoStandard, &data));
        EXPECT_EQ(data.dwFileAttributes, DWORD{FILE_ATTRIBUTE_DIRECTORY});
        EXPECT_NE(toTicks(data.ftLastWriteTime), toTicks(item(L"").data.ftLastWriteTime));
    }
}

TEST_F(RestoreJobTest, WhatWasReceivedStaysWhileTheRunMayGoOn) {
    const std::wstring package = itemTempPath(itemTempFolder("j1"), 3);
    const auto job = makeRestore();
    const std::wstring ofFailed = itemTempPath(itemTempFolder("j1"), 2);
    write(package, "a former run's");
    script_.items["a"] = {ERROR_ACCESS_DENIED};
    script_.items["b"] = {WSAECONNRESET};
    script_.onItem = [&](const std::string& name) {
        if (name == "a") {
            write(ofFailed, "a whole one");
        }
        EXPECT_TRUE(name != "b" || !exists(ofFailed)) << "nobody comes back to it";
        if (name == "b" && script_.count("C:\\sources\\b") == 0) {
            EXPECT_FALSE(exists(package));
            write(package, "half a package");
        } else if (name == "b") {
            EXPECT_TRUE(exists(package)) << "the resumed run goes on with it";
        }
    };
    run(*job, paused);
    run(*job, completed);
    EXPECT_FALSE(exists(package));
}

}  // namespace
}  // namespace dorvo
