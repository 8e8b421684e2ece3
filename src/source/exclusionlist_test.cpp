#include "source/exclusionlist.h"

#include <windows.h>

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
    for (const char* path : {"C:\\Temp", "c:/temp/", "C:/Temp2"}) {
        EXPECT_TRUE(exclusions.addPath("all", path));
    }
    EXPECT_TRUE(exclusions.addPath("j1", "C:\\a"));
    EXPECT_EQ(listOf(exclusions, "all"), R"(["C:/Temp","C:/Temp2"])");
    EXPECT_EQ(listOf(exclusions, "j1"), R"(["C:/a"])");
    const ExcludedPaths forJob(exclusions, "j1");
    EXPECT_TRUE(forJob.contains(L"C:\\a\\x") && forJob.contains(L"C:\\temp2"));
    EXPECT_FALSE(ExcludedPaths(exclusions, "j2").contains(L"C:\\a"));
    EXPECT_TRUE(exclusions.removePath("all", "C:\\TEMP"));
    EXPECT_FALSE(exclusions.removePath("all", "C:\\TEMP") || exclusions.removePath("j2", "C:\\a"));
    EXPECT_EQ(listOf(exclusions, "all"), R"(["C:/Temp2"])");
    EXPECT_TRUE(exclusions.removePath("j1", "C:/A"));
    EXPECT_EQ(listOf(exclusions, "j1"), "none");
    for (const char* nothing : {static_cast<const char*>(nullptr), ""}) {
        EXPECT_FALSE(exclusions.addPath(nothing, "C:/a") || exclusions.addPath("all", nothing) ||
                     exclusions.removePath(nothing, nothing));
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
    write(path_, R"({"all":["C:/a"]})");
    EXPECT_TRUE(ExclusionList().removePath("all", "C:/a"));
    EXPECT_EQ(contentOf(path_), "{\n}");
}

TEST_F(Exclusions, LeavesWhatIsNoUseAsItIsAndSaysSo) {
    write(path_, R"({"all":"C:/Temp","j1":[7,"C:/a"]})");
    {
        ExclusionList exclusions;
        EXPECT_FALSE(exclusions.addPath("all", "C:/b") || exclusions.removePath("all", "C:/Temp"));
        EXPECT_EQ(listOf(exclusions, "all"), "none");
        EXPECT_TRUE(exclusions.removePath("j1", "c:\\A"));
        EXPECT_EQ(listOf(exclusions, "j1"), "[7]");
        EXPECT_FALSE(ExcludedPaths(exclusions, "j1").contains(L"C:\\Temp"));
    }
    for (const char* damaged : {"", "[]", "{\"all\" :"}) {
        test::LogCapture log;
        write(path_, damaged);
        {
            ExclusionList exclusions;
            EXPECT_TRUE(exclusions.damaged());
            EXPECT_FALSE(exclusions.addPath("all", "C:/a") || exclusions.save());
        }
        EXPECT_TRUE(log.begins("Failed to load the exclusion list {")) << damaged;
        EXPECT_EQ(contentOf(path_), damaged);
    }
}

TEST(ExcludedPaths, CoverWholeComponents) {
    const std::tuple<const wchar_t*, std::vector<std::wstring>, std::vector<std::wstring>> rows[] =
        {
            {L"C:\\data",
             {L"C:\\data", L"c:\\Data\\sub\\a.txt", L"\\\\?\\C:\\data\\x"},
             {L"C:\\database", L"D:\\C:\\data"}},
            {L"C:\\data\\a.txt", {}, {L"C:\\data"}},
            {L"C:/data/", {L"C:\\data\\x"}, {}},
            {L"C:\\", {L"C:\\pagefile.sys"}, {}},
            {L"\\\\nas\\share", {L"\\\\?\\UNC\\nas\\share\\x"}, {L"\\\\nas\\share2"}},
            {L"C:\\\u00c9t\u00e9", {L"C:\\\u00e9T\u00c9\\x"}, {}},
            {L"", {}, {L"C:\\x"}},
        };
    for (const auto& [excluded, covered, others] : rows) {
        SCOPED_TRACE(toUtf8(excluded));
        ExcludedPaths paths;
        paths.add(excluded);
        for (const std::wstring& path : covered) {
            EXPECT_TRUE(paths.contains(path)) << toUtf8(path);
        }
        for (const std::wstring& path : others) {
            EXPECT_FALSE(paths.contains(path)) << toUtf8(path);
        }
    }
}

}  // namespace
}  // namespace dorvo
