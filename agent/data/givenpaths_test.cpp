#include "data/givenpaths.h"

#include <windows.h>

#include <gtest/gtest.h>

#include "base/paths.h"
#include "base/text.h"
#include "support/temporary_folder.h"

namespace dorvo::agent {
namespace {

TEST(OnDiskPath, SpellsEachComponentAsTheDiskDoes) {
    const test::TemporaryFolder ground(L"OnDiskPath");
    const std::wstring root = onDiskPath(ground.path(), true);
    const std::wstring whole = root + L"\\Mixed Case\\\u00C4rger";
    ASSERT_TRUE(createDirectories(whole));
    EXPECT_EQ(onDiskPath(upperCase(whole), true), whole);
    EXPECT_EQ(onDiskPath(root + L"/mixed case/\u00E4RGER/", true), whole);
    EXPECT_EQ(onDiskPath(L"c:\\", true), L"C:\\");
    EXPECT_EQ(onDiskPath(root + L"\\mixed case\\None", false), root + L"\\Mixed Case\\None");
}

TEST(WithoutNested, DropsRepetitionsAndWhatLiesBelowAnother) {
    using Paths = std::vector<std::wstring>;
    struct Row {
        Paths given;
        Paths kept;
    };
    for (const Row& row :
         {Row{{L"C:\\a", L"C:\\b"}, {L"C:\\a", L"C:\\b"}}, Row{{L"C:\\a", L"c:\\A"}, {L"C:\\a"}},
          Row{{L"C:\\a\\b\\c", L"C:\\a", L"C:\\ab"}, {L"C:\\a", L"C:\\ab"}},
          Row{{L"C:\\x", L"C:\\", L"D:\\x"}, {L"C:\\", L"D:\\x"}}, Row{{L"C:\\"}, {L"C:\\"}}}) {
        EXPECT_EQ(withoutNested(row.given), row.kept);
    }
    const auto behindALink = [](const std::wstring&, const std::wstring& path) {
        return !path.starts_with(L"C:\\link");
    };
    EXPECT_EQ(withoutNested({L"C:\\", L"C:\\link", L"C:\\a", L"C:\\LINK"}, behindALink),
              (Paths{L"C:\\", L"C:\\link"}));
}

TEST(NameOfSources, CountsWhereTheListWouldBeLong) {
    EXPECT_EQ(nameOfSources({L"C:\\a", L"D:\\b"}), L"C:\\a, D:\\b");
    const std::wstring longPath = L"C:\\" + std::wstring(70, L'x');
    EXPECT_EQ(nameOfSources({longPath}), longPath);
    EXPECT_EQ(nameOfSources({longPath, L"D:\\b", L"E:\\"}), longPath + L" and 2 more");
}

TEST(Paths, TakeEveryWayToWriteThem) {
    struct Row {
        const char* given;
        const wchar_t* onDisk;  // empty: refused
        const wchar_t* held;
    };
    for (const Row& row :
         {Row{"C:\\data", L"C:\\data", L"C:\\data"}, Row{"c:/Data/", L"C:\\Data", L"C:\\Data"},
          Row{"c:\\", L"C:\\", L"C:"}, Row{"\\\\?\\c:\\x\\", L"C:\\x", L"C:\\x"},
          Row{"//server/share/x/", L"\\\\server\\share\\x", L"\\\\server\\share\\x"},
          // A backup may hold names that the disk would not take.
          Row{"C:\\a\\..\\b\\.\\c", L"C:\\b\\c", L"C:\\a\\..\\b\\.\\c"},
          Row{"C:\\*.txt", L"", L"C:\\*.txt"}, Row{"C:\\file:stream", L"", L"C:\\file:stream"},
          Row{"\\\\.\\C:", L"", L"\\\\.\\C:"}, Row{"", L"", L""}, Row{"a*", L"", L""}}) {
        EXPECT_EQ(absolutePath(toWide(row.given)), row.onDisk) << row.given;
        EXPECT_EQ(backupPath(row.given), row.held) << row.given;
    }
    for (const char* name : {"C:\\odd. ", "C:\\nul"}) {
        EXPECT_EQ(backupPath(name), toWide(name));
    }
    EXPECT_EQ(absolutePath(L"\\\\?\\Volume{1}\\x"), L"");
    EXPECT_EQ(backupPath("C:"), L"C:");
    EXPECT_EQ(backupPath("a\\b"), absolutePath(L"a\\b"));
    wchar_t here[MAX_PATH];
    GetCurrentDirectoryW(MAX_PATH, here);
    EXPECT_EQ(absolutePath(L".\\a\\.."), here);
}

}  // namespace
}  // namespace dorvo::agent
