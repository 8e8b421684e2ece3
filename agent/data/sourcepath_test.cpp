#include "data/sourcepath.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "base/paths.h"
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

}  // namespace
}  // namespace dorvo::agent
