#include "job/restorejob.h"

#include "job/scripted_job.h"

namespace dorvo {
namespace {

using namespace test;

class RestoreJobTest : public ScriptedJobTest {};

// The file appears only after its place was chosen.
TEST_F(RestoreJobTest, ConflictsAreNoErrors) {
    struct Row {
        const char* name;
        int32_t conflict;
        Names stored;
        const wchar_t* restored;  // where "a" comes to lie; null: nowhere
    };
    const Row rows[] = {
        {"keep", 1, {"sources", "a", "b", "c"}, nullptr},
        {"overwrite", 2, {"sources", "a", "b", "c"}, L"\\a"},
        {"rename", 3, {"sources", "a", "a", "b", "c"}, L"\\a.0"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        rm_rf(target(), true);
        script_ = {};
        script_.onItem = [&](const std::string& name) {
            if (name == "a" && !exists(target() + L"\\a")) {
                write(target() + L"\\a", "mine");
            }
        };
        const auto job = makeRestore(row.conflict);
        run(*job);
        EXPECT_EQ(job->state(), completed);
        EXPECT_EQ(script_.stored(), row.stored);
        EXPECT_TRUE(job->errors().empty());
        EXPECT_EQ(job->record().doneSize, 21u) << "what is left out is done";
        EXPECT_EQ(job->record().unchangedSize, row.conflict == 1 ? 7u : 0u);
        EXPECT_EQ(contentOf(target() + L"\\a"), row.conflict == 2 ? "C:\\sources\\a" : "mine");
        if (row.restored != nullptr) {
            EXPECT_EQ(contentOf(target() + row.restored), "C:\\sources\\a");
        }
    }
}

TEST_F(RestoreJobTest, AStopOrPauseWhileListingIsNoFailure) {
    for (const bool stop : {true, false}) {
        SCOPED_TRACE(stop);
        script_ = {};
        script_.list = {ERROR_CANCELLED};
        const auto job = makeRestore();
        script_.onList = [&] { EXPECT_TRUE(stop ? job->stop() : job->pause(true)); };
        run(*job);
        EXPECT_EQ(job->state(), stop ? cancelled : paused);
        EXPECT_EQ(script_.calls, stop ? Names{"cancel"} : Names{});
        script_.onList = nullptr;
        run(*job);
        EXPECT_EQ(job->state(), completed);
        EXPECT_EQ(script_.stored(), (Names{"sources", "a", "b", "c"}));
    }
}

TEST_F(RestoreJobTest, ADriveDoesNotHideTheFolderThatTakesItIn) {
    for (const wchar_t* prefix : {L"", L"C:\\"}) {
        SCOPED_TRACE(toUtf8(prefix));
        rm_rf(target(), true);
        prefix_ = prefix;
        script_ = {};
        script_.catalog = {item(L"C:", true), item(L"C:\\d", true)};
        script_.catalog[0].data.dwFileAttributes |= FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
        const auto job = makeRestore();
        run(*job);
        EXPECT_EQ(job->state(), completed);
        EXPECT_TRUE(job->errors().empty());
        EXPECT_EQ(script_.stored(), Names{"d"});
        WIN32_FILE_ATTRIBUTE_DATA data{};
        ASSERT_TRUE(GetFileAttributesExW(target().c_str(), GetFileExInfoStandard, &data));
        EXPECT_EQ(data.dwFileAttributes, DWORD{FILE_ATTRIBUTE_DIRECTORY});
        EXPECT_NE(toTicks(data.ftLastWriteTime), toTicks(item(L"").data.ftLastWriteTime));
    }
}

}  // namespace
}  // namespace dorvo
