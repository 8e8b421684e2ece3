#include "job/activity/jobhistory.h"

#include <windows.h>

#include "base/handle.h"
#include "base/local_time.h"
#include "job/activity/jobhistoryerror.h"
#include "job/activity/jobhistoryinfo.h"
#include "job/activity/jobhistorynotes.h"
#include "json_spirit/json_spirit.h"
#include "support/files.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

class JobHistory : public test::StoreTest {
protected:
    std::string infoPath(const char* instance) const {
        return toUtf8(jobHistoryInfoPath(job_, instance));
    }
    std::string errorPath(const char* instance) const {
        return toUtf8(jobHistoryErrorPath(job_, instance));
    }
    bool exists(const char* name) const { return test::exists(job_ + L"\\hist\\" + toWide(name)); }
    // Seconds after a day of 2011: no file system of the tests knows all times since 1601.
    void writeAt(const char* name, uint64_t seconds) const {
        const std::wstring path = job_ + L"\\hist\\" + toWide(name);
        write(path, "{}");
        const FileHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                          FILE_ATTRIBUTE_NORMAL, nullptr));
        const FILETIME written = toFileTime(129437500800000000 + seconds * ticksPerSecond);
        SetFileTime(file.get(), nullptr, nullptr, &written);
    }

    const std::wstring job_ = dataPath(L"\\job\\1");
};

FILETIME timeOf(SYSTEMTIME time) {
    FILETIME result;
    SystemTimeToFileTime(&time, &result);
    return result;
}

TEST_F(JobHistory, InfoIsSavedWhenItGoes) {
    {
        JobHistoryInfo info(infoPath("e1"));
        EXPECT_TRUE(info.instanceId("e1"));
        EXPECT_TRUE(info.type("backup"));
        EXPECT_TRUE(info.starttime(timeOf({2011, 3, 0, 4, 5, 6, 7, 999})));
        EXPECT_TRUE(info.endtime(timeOf({2011, 12, 0, 31, 23, 59, 59, 0})));
        EXPECT_TRUE(info.totalsize(int64_t{1} << 40));
        EXPECT_TRUE(info.filescount(3));
        EXPECT_TRUE(info.state("Running"));
        EXPECT_TRUE(info.state("Completed"));
        EXPECT_TRUE(info.speed(1024));
        EXPECT_FALSE(exists("e1"));
    }
    EXPECT_EQ(contentOf(jobHistoryInfoPath(job_, "e1")), R"({
    "endtime" : "2011-12-31 23:59:59",
    "filescount" : 3,
    "instanceId" : "e1",
    "speed" : 1024,
    "starttime" : "2011-3-4 05:06:07",
    "state" : "Completed",
    "totalsize" : 1099511627776,
    "type" : "backup"
})");
}

// A removed job's folder must not come back with a late destructor.
TEST_F(JobHistory, InfoIsNotWrittenTwice) {
    {
        JobHistoryInfo info(infoPath("e1"));
        info.state("Completed");
        ASSERT_TRUE(info.save());
        rm_rf(job_, true);
    }
    EXPECT_FALSE(exists("e1"));
}

TEST_F(JobHistory, RefusesTimesAndIdsThatCannotBe) {
    JobHistoryInfo info(infoPath("e1"));
    EXPECT_FALSE(info.starttime(toFileTime(~uint64_t{0})));
    EXPECT_FALSE(info.instanceId(nullptr));
    EXPECT_TRUE(info.values().empty());
    for (const char* id : {"", "..", "a\\b", "a/b", "NUL"}) {
        EXPECT_EQ(jobHistoryInfoPath(job_, id), L"") << id;
        EXPECT_EQ(jobHistoryErrorPath(job_, id), L"") << id;
    }
}

// Appending leaves what writing all of it would, whatever the file was like before.
TEST_F(JobHistory, LastErrorIsSavedBehindTheOthers) {
    const std::wstring path = jobHistoryErrorPath(job_, "e1");
    for (const char* before : {"", "[\n]", "[{}]", "[\n    {\n    }\n]", "damaged }\n]"}) {
        write(path, before);
        JobHistoryError errors(errorPath("e1"));
        for (const uint32_t code : {1u, 2u, 0xFFFFFFFFu}) {
            ASSERT_TRUE(errors.add(L"C:\\a \"b\"\n", code, "gone"));
            ASSERT_TRUE(errors.saveLast()) << before;
            const JobHistoryError again(errorPath("e1"));
            ASSERT_EQ(again.values(), errors.values()) << contentOf(path);
        }
        EXPECT_EQ(contentOf(path),
                  json_spirit::write_formatted(json_spirit::Value(errors.values())))
            << before;
    }
}

TEST_F(JobHistory, KeepsTheLastRuns) {
    EXPECT_TRUE(trimJobHistory(job_));
    writeAt("old", 1000);
    writeAt("old.errors", 1000);
    writeAt("older, with late errors", 500);
    writeAt("older, with late errors.errors", 3000);
    writeAt("old.notes", 1000);
    writeAt("errors only.errors", 900);
    writeAt("new", 2000);
    createDirectories(job_ + L"\\hist\\folder");

    EXPECT_TRUE(trimJobHistory(job_, 4));
    EXPECT_TRUE(exists("errors only.errors"));
    EXPECT_TRUE(trimJobHistory(job_, 2));
    for (const char* gone : {"errors only.errors", "old", "old.errors", "old.notes"}) {
        EXPECT_FALSE(exists(gone)) << gone;
    }
    for (const char* kept :
         {"older, with late errors", "older, with late errors.errors", "new", "folder"}) {
        EXPECT_TRUE(exists(kept)) << kept;
    }
}

TEST_F(JobHistory, NotesAreKeptUpToALimitAndWrittenOnlyWhenThereAreAny) {
    using Kind = JobHistoryNotes::Kind;
    const std::wstring path = jobHistoryNotesPath(job_, "e1");
    {
        JobHistoryNotes notes(toUtf8(path));
        notes.clear();
        EXPECT_TRUE(notes.save());
        EXPECT_FALSE(exists("e1.notes"));
        for (size_t i = 0; i < JobHistoryNotes::mostOfKind + 5; ++i) {
            notes.add(Kind::leftOut, L"C:\\link", "a link");
        }
        notes.addOnce(Kind::warning, L"D:\\", "live");
        EXPECT_TRUE(notes.save());
    }
    JobHistoryNotes again(toUtf8(path));
    again.addOnce(Kind::warning, L"D:\\", "live");
    again.add(Kind::leftOut, L"C:\\other", "a link");
    ASSERT_EQ(again.values().size(), JobHistoryNotes::mostOfKind + 2);
    EXPECT_EQ(json_spirit::write(again.values()[JobHistoryNotes::mostOfKind]),
              R"({"kind":"leftOut","path":"","reason":"there are more than are listed here"})");
    EXPECT_EQ(json_spirit::write(again.values().back()),
              R"({"kind":"warning","path":"D:\\","reason":"live"})");
    again.clear();
    EXPECT_TRUE(again.save());
    EXPECT_EQ(contentOf(path), "[\n]");
}

TEST_F(JobHistory, GoesOnPastARunThatCannotBeRemoved) {
    writeAt("a", 1000);
    writeAt("b", 2000);
    const FileHandle held(CreateFileW((job_ + L"\\hist\\a").c_str(), GENERIC_READ, FILE_SHARE_READ,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    EXPECT_FALSE(trimJobHistory(job_, 0));
    EXPECT_TRUE(exists("a"));
    EXPECT_FALSE(exists("b"));
}

}  // namespace
}  // namespace dorvo
