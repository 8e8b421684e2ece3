#include "data/givenpaths.h"

#include <windows.h>

#include <gtest/gtest.h>

#include "base/paths.h"
#include "base/text.h"
#include "support/temporary_folder.h"

namespace dorvo::agent {
namespace {

TEST(AbsolutePath, RelativePathsStartAtTheCurrentFolder) {
    wchar_t before[MAX_PATH];
    GetCurrentDirectoryW(MAX_PATH, before);
    SetCurrentDirectoryW(L"C:\\windows");
    EXPECT_EQ(absolutePath(L"system32"), absolutePath(L"C:\\windows\\system32"));
    EXPECT_EQ(absolutePath(L"."), absolutePath(L"C:\\windows"));
    SetCurrentDirectoryW(before);
}

class OnDiskPath : public testing::Test {
protected:
    OnDiskPath() { createDirectories(root_ + L"\\Mixed Case\\\u00C4rger"); }

    test::TemporaryFolder ground_{L"OnDiskPath"};
    const std::wstring root_ = onDiskPath(ground_.path(), true);
};

TEST_F(OnDiskPath, SpellsEachComponentAsTheDiskDoes) {
    const std::wstring whole = root_ + L"\\Mixed Case\\\u00C4rger";
    EXPECT_EQ(onDiskPath(upperCase(whole), true), whole);
    EXPECT_EQ(onDiskPath(root_ + L"/mixed case/\u00E4RGER/", true), whole);
    EXPECT_EQ(onDiskPath(L"c:\\", true), L"C:\\");
    EXPECT_EQ(onDiskPath(root_ + L"\\mixed case\\None", false), root_ + L"\\Mixed Case\\None");
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
}

}  // namespace
}  // namespace dorvo::agent
