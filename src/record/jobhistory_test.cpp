#include "record/jobhistory.h"

#include <windows.h>

#include <algorithm>
#include <utility>

#include "base/handle.h"
#include "base/local_time.h"
#include "json_spirit/json_spirit.h"
#include "record/jobhistoryerror.h"
#include "record/jobhistoryinfo.h"
#include "record/jobhistorynotes.h"
#include "support/fails_with.h"
#include "support/files.h"
#include "support/held_file.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

using Names = std::vector<std::string>;

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

Names pathsOf(const JobHistoryError& errors) {
    Names paths;
    for (const json_spirit::Value& item : errors.values()) {
        paths.push_back(item.get_obj().at("path").get_str());
    }
    return paths;
}

// Whatever byte a process dies at: what was saved is there, once, and more can be saved.
TEST_F(JobHistory, ErrorsSurviveADeathAtAnyByte) {
    const std::wstring document = jobHistoryErrorPath(job_, "e1");
    const std::wstring journal = document + L".journal";
    {
        JobHistoryError errors(errorPath("e1"));
        ASSERT_TRUE(errors.add(L"a \"b\"\n", 1, "gone") && errors.saveNew() && errors.save());
        EXPECT_FALSE(exists("e1.errors.journal"));
        for (const wchar_t* path : {L"b", L"c"}) {
            ASSERT_TRUE(errors.add(path, 0xFFFFFFFF, nullptr) && errors.saveNew());
        }
    }
    const std::string lines = contentOf(journal);
    const std::string before = contentOf(document);
    for (size_t cut = 0; cut <= lines.size(); ++cut) {
        const size_t whole = static_cast<size_t>(
            std::count(lines.begin(), lines.begin() + static_cast<ptrdiff_t>(cut), '\n'));
        for (const std::string& torn :
             {std::string(), std::string(9, '\0'), std::string("\0]\n", 3)}) {
            SCOPED_TRACE(testing::Message() << cut << " bytes and others: " << torn.size());
            write(document, before);
            write(journal, lines.substr(0, cut) + torn);
            Names expected = {"a \"b\"\n", "b", "c"};
            expected.resize(1 + whole);
            JobHistoryError errors(errorPath("e1"));
            ASSERT_EQ(errors.readError(), DWORD{ERROR_SUCCESS});
            ASSERT_EQ(pathsOf(errors), expected);
            ASSERT_TRUE(errors.add(L"d", 5, "") && errors.saveNew());
            expected.emplace_back("d");
            ASSERT_EQ(pathsOf(JobHistoryError(errorPath("e1"))), expected);
            const std::string all = contentOf(journal);
            ASSERT_TRUE(errors.save());
            ASSERT_FALSE(exists("e1.errors.journal"));
            write(journal, all);  // it died before the journal went
            ASSERT_EQ(pathsOf(JobHistoryError(errorPath("e1"))), expected);
        }
    }
}

TEST_F(JobHistory, ErrorsThatCannotBeReadStayAsTheyAre) {
    const std::wstring document = jobHistoryErrorPath(job_, "e1");
    const std::wstring journal = document + L".journal";
    struct Row {
        const char* name;
        const char* document;  // null for none
        const char* journal;
        DWORD error;
    };
    constexpr Row rows[] = {
        {"cut off", "[\n    {\n    }", nullptr, ERROR_INVALID_DATA},
        {"empty", "", nullptr, ERROR_INVALID_DATA},
        {"another kind", "{}", nullptr, ERROR_INVALID_DATA},
        {"damaged in the middle", "[]", "[0,{}]\n[1,}]\n[2,{}]\n", ERROR_FILE_CORRUPT},
        {"negative place", "[]", "[-1,{}]\n[0,{}]\n", ERROR_FILE_CORRUPT},
        {"items missing before", "[{}]", "[2,{}]\n", ERROR_FILE_CORRUPT},
        {"no document to a journal", nullptr, "[1,{}]\n", ERROR_FILE_CORRUPT},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        rm_rf(job_, true);
        for (const auto& [path, text] :
             {std::pair(document, row.document), std::pair(journal, row.journal)}) {
            if (text != nullptr) {
                write(path, text);
            }
        }
        JobHistoryError errors(errorPath("e1"));
        EXPECT_EQ(errors.readError(), row.error);
        EXPECT_TRUE(errors.values().empty());
        EXPECT_TRUE(errors.add(L"a", 1, ""));
        EXPECT_FAILS(row.error, errors.saveNew());
        EXPECT_FAILS(row.error, errors.save());
        EXPECT_EQ(contentOf(document), row.document == nullptr ? "" : row.document);
        EXPECT_EQ(contentOf(journal), row.journal == nullptr ? "" : row.journal);
        EXPECT_TRUE(errors.clear());
        EXPECT_FALSE(exists("e1.errors") || exists("e1.errors.journal"));
        EXPECT_TRUE(errors.add(L"a", 1, "") && errors.saveNew());
        EXPECT_EQ(pathsOf(JobHistoryError(errorPath("e1"))), Names{"a"});
    }
}

// Another program that looks at the files for a moment costs nothing.
TEST_F(JobHistory, ErrorsWaitForWhoHoldsTheirFiles) {
    const std::wstring document = jobHistoryErrorPath(job_, "e1");
    const std::wstring journal = document + L".journal";
    JobHistoryError errors(errorPath("e1"));
    ASSERT_TRUE(errors.add(L"a", 1, "") && errors.save());
    ASSERT_TRUE(errors.add(L"b", 1, "") && errors.saveNew());
    {
        const test::Held held(document);
        EXPECT_FALSE(errors.save());
        EXPECT_EQ(JobHistoryError(errorPath("e1")).readError(), DWORD{ERROR_SHARING_VIOLATION});
    }
    EXPECT_EQ(pathsOf(JobHistoryError(errorPath("e1"))), (Names{"a", "b"})) << "in the journal";
    FileHandle held = test::holdFile(document);
    const test::Meanwhile letGo([&] { held.reset(); });
    EXPECT_EQ(JobHistoryError(errorPath("e1")).readError(), DWORD{ERROR_SUCCESS});
    held = test::holdFile(document);
    EXPECT_TRUE(errors.save());
    write(journal, "[2,{\"path\":\"c\"}]\n");
    held = test::holdFile(journal);
    JobHistoryError goesOn(errorPath("e1"));
    EXPECT_EQ(goesOn.readError(), DWORD{ERROR_SUCCESS});
    held = test::holdFile(journal);
    EXPECT_TRUE(goesOn.add(L"d", 1, "") && goesOn.saveNew());
    EXPECT_EQ(pathsOf(JobHistoryError(errorPath("e1"))), (Names{"a", "b", "c", "d"}));
}

TEST_F(JobHistory, ErrorsAreWrittenWhenThereAreNewOnes) {
    JobHistoryError errors(errorPath("e1"));
    EXPECT_TRUE(errors.save());
    EXPECT_EQ(contentOf(jobHistoryErrorPath(job_, "e1")), "[\n]");
    ASSERT_TRUE(errors.add(L"a", 1, "") && errors.saveNew() && errors.save());
    write(jobHistoryErrorPath(job_, "e1"), "somebody's");
    EXPECT_TRUE(errors.save());
    EXPECT_EQ(contentOf(jobHistoryErrorPath(job_, "e1")), "somebody's");
}

TEST_F(JobHistory, KeepsTheLastRuns) {
    EXPECT_TRUE(trimJobHistory(job_, ""));
    writeAt("old", 1000);
    writeAt("old.errors", 1000);
    writeAt("older, with late errors", 500);
    writeAt("older, with late errors.errors", 3000);
    writeAt("old.notes", 1000);
    writeAt("errors only.errors", 900);
    writeAt("errors only.errors.journal", 900);
    writeAt("errors only.errors.new", 900);
    writeAt("new", 2000);
    createDirectories(job_ + L"\\hist\\folder");

    EXPECT_TRUE(trimJobHistory(job_, "", 4));
    EXPECT_TRUE(exists("errors only.errors"));
    EXPECT_TRUE(trimJobHistory(job_, "", 2));
    for (const char* gone : {"errors only.errors", "errors only.errors.journal",
                             "errors only.errors.new", "old", "old.errors", "old.notes"}) {
        EXPECT_FALSE(exists(gone)) << gone;
    }
    for (const char* kept :
         {"older, with late errors", "older, with late errors.errors", "new", "folder"}) {
        EXPECT_TRUE(exists(kept)) << kept;
    }
    // The clock was ahead when the others ran.
    writeAt("current", 1);
    writeAt("current.errors", 1);
    EXPECT_TRUE(trimJobHistory(job_, "current", 2));
    EXPECT_TRUE(exists("current") && exists("current.errors"));
    EXPECT_FALSE(exists("new"));
    EXPECT_TRUE(exists("older, with late errors"));
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
    EXPECT_FALSE(trimJobHistory(job_, "", 0));
    EXPECT_TRUE(exists("a"));
    EXPECT_FALSE(exists("b"));
}

}  // namespace
}  // namespace dorvo
