#include "job/source/exclusionlist.h"

#include <windows.h>

#include "job/source/excludedpaths.h"
#include "json_spirit/json_spirit.h"
#include "support/log_capture.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

class Exclusions : public test::StoreTest {
protected:
    static std::string listOf(const ExclusionList& exclusions, const char* name) {
        json_spirit::Value paths;
        return exclusions.getList(name, paths) ? json_spirit::write(paths) : "none";
    }

    const std::wstring path_ = dataPath(L"\\exclusions");
};

TEST_F(Exclusions, PathStandsOnceInAList) {
    ExclusionList exclusions;
    EXPECT_TRUE(exclusions.addPath("all", "C:\\Temp"));
    EXPECT_TRUE(exclusions.addPath("all", "c:/temp/"));
    EXPECT_TRUE(exclusions.addPath("all", "C:/Temp2"));
    EXPECT_TRUE(exclusions.addPath("j1", "C:\\Temp"));
    EXPECT_EQ(listOf(exclusions, "all"), R"(["C:/Temp","C:/Temp2"])");
    EXPECT_EQ(listOf(exclusions, "j1"), R"(["C:/Temp"])");
    EXPECT_EQ(listOf(exclusions, "j2"), "none");

    EXPECT_TRUE(exclusions.removePath("all", "C:\\TEMP"));
    EXPECT_FALSE(exclusions.removePath("all", "C:\\TEMP"));
    EXPECT_FALSE(exclusions.removePath("j2", "C:\\TEMP"));
    EXPECT_EQ(listOf(exclusions, "all"), R"(["C:/Temp2"])");
    EXPECT_TRUE(exclusions.removePath("j1", "C:/temp"));
    EXPECT_EQ(listOf(exclusions, "j1"), "none");

    for (const char* nothing : {static_cast<const char*>(nullptr), ""}) {
        EXPECT_FALSE(exclusions.addPath(nothing, "C:/a"));
        EXPECT_FALSE(exclusions.addPath("all", nothing));
        EXPECT_FALSE(exclusions.removePath(nothing, nothing));
    }
}

TEST_F(Exclusions, FileIsWrittenOnceForEachChange) {
    const std::string saved = "{\n    \"all\" : [\n        \"C:/Temp\"\n    ]\n}";
    {
        ExclusionList exclusions;
        exclusions.addPath("all", "C:\\Temp");
        EXPECT_EQ(contentOf(path_), "");
    }
    EXPECT_EQ(contentOf(path_), saved);
    {
        ExclusionList exclusions;
        exclusions.addPath("all", "C:\\b");
        EXPECT_TRUE(exclusions.save());
        EXPECT_NE(contentOf(path_), saved);
        exclusions.addPath("all", "C:\\Temp");  // no change
        const ExclusionList copy(exclusions);
        write(path_, "{}");
    }
    EXPECT_EQ(contentOf(path_), "{}");
}

TEST_F(Exclusions, WhatIsNoListIsLeftAlone) {
    write(path_, R"({"all":"C:/Temp","j1":[7,"C:/a"]})");
    ExclusionList exclusions;
    EXPECT_FALSE(exclusions.addPath("all", "C:/b"));
    EXPECT_FALSE(exclusions.removePath("all", "C:/Temp"));
    EXPECT_EQ(listOf(exclusions, "all"), "none");
    EXPECT_TRUE(exclusions.removePath("j1", "c:\\A"));
    EXPECT_EQ(listOf(exclusions, "j1"), "[7]");
    EXPECT_FALSE(ExcludedPaths(exclusions, "j1").contains(L"C:\\Temp"));
}

TEST_F(Exclusions, LeavesAFileThatIsNoUseAsItIsAndSaysSo) {
    const std::string text =
        "Failed to load the exclusion list {" + toUtf8(path_) + "}; nothing is excluded.\n";
    test::LogCapture quiet;
    { const ExclusionList missing; }
    EXPECT_FALSE(quiet.has(text));
    for (const char* damaged : {"", "[]", "{\"all\" :"}) {
        test::LogCapture log;
        write(path_, damaged);
        {
            ExclusionList exclusions;
            EXPECT_TRUE(exclusions.damaged());
            EXPECT_FALSE(exclusions.addPath("all", "C:/a"));
            EXPECT_FALSE(exclusions.save());
        }
        EXPECT_TRUE(log.has(LogLevel::error, text)) << damaged;
        EXPECT_EQ(contentOf(path_), damaged);
    }
}

TEST_F(Exclusions, JobHonoursTwoLists) {
    ExclusionList exclusions;
    exclusions.addPath("all", "C:/a");
    exclusions.addPath("j1", "C:/b");
    exclusions.addPath("j2", "C:/c");
    const ExcludedPaths paths(exclusions, "j1");
    EXPECT_TRUE(paths.contains(L"C:\\a"));
    EXPECT_TRUE(paths.contains(L"C:\\b\\x"));
    EXPECT_FALSE(paths.contains(L"C:\\c"));
}

TEST(ExcludedPaths, CoverWholeComponents) {
    struct Row {
        const wchar_t* excluded;
        const wchar_t* path;
        bool covered;
    };
    const Row rows[] = {
        {L"C:\\data", L"C:\\data", true},
        {L"C:\\data", L"c:\\Data\\sub\\a.txt", true},
        {L"C:\\data", L"C:\\database", false},
        {L"C:\\data\\a.txt", L"C:\\data", false},
        {L"C:/data/", L"C:\\data\\x", true},
        {L"C:\\data", L"\\\\?\\C:\\data\\x", true},
        {L"C:\\", L"C:\\pagefile.sys", true},
        {L"\\\\nas\\share", L"\\\\?\\UNC\\nas\\share\\x", true},
        {L"\\\\nas\\share", L"\\\\nas\\share2", false},
        {L"C:\\\u00c9t\u00e9", L"C:\\\u00e9T\u00c9\\x", true},
        {L"C:\\a\\b", L"D:\\C:\\a\\b", false},
        {L"", L"C:\\x", false},
    };
    for (const Row& row : rows) {
        ExcludedPaths paths;
        paths.add(row.excluded);
        EXPECT_EQ(paths.contains(row.path), row.covered)
            << toUtf8(row.excluded) << " and " << toUtf8(row.path);
    }
}

}  // namespace
}  // namespace dorvo
