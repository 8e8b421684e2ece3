#include "job/restorepath.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace dorvo {
namespace {

using Fault = RestorePathFault;

// Judged as an original that goes back to its place, and as what another location makes of it.
TEST(RestorePath, AllowsOnlyPlainAbsolutePaths) {
    struct Row {
        std::wstring path;
        Fault fault;
    };
    const Row rows[] = {
        {L"C:\\data\\a.txt", Fault::none},
        {L"z:\\.git\\ leading and.dots..in it", Fault::none},
        {L"C:\\con1\\com0\\com10\\LPT\\aux-\\null.txt\\lpt4", Fault::deviceName},
        {L"C:\\con1\\com0\\com10\\LPT\\aux-\\null.txt\\conin$x", Fault::none},
        {L"\\\\server\\share$\\a", Fault::none},
        {L"C:\\" + std::wstring(255, L'n'), Fault::none},
        {L"C:\\" + std::wstring(256, L'n') + L"\\a", Fault::nameTooLong},
        {L"", Fault::notAbsolute},
        {L"a", Fault::notAbsolute},
        {L"data\\a", Fault::notAbsolute},
        {L"\\data\\a", Fault::notAbsolute},
        {L"C:a", Fault::notAbsolute},
        {L"C:..\\a", Fault::notAbsolute},
        {L"1:\\a", Fault::notAbsolute},
        {L"CC:\\a", Fault::notAbsolute},
        {L"\\\\", Fault::notAbsolute},
        {L"\\\\server", Fault::notAbsolute},
        {L"\\\\server\\", Fault::notAbsolute},
        {L"\\\\\\share\\a", Fault::notAbsolute},
        {L"\\\\?\\C:\\a", Fault::otherScheme},
        {L"\\\\?\\UNC\\server\\share\\a", Fault::otherScheme},
        {L"\\\\.\\PhysicalDrive0", Fault::otherScheme},
        {L"\\??\\C:\\a", Fault::otherScheme},
        {L"\\\\??\\C:\\a", Fault::otherScheme},
        {L"C:/data/a", Fault::forwardSlash},
        {L"C:\\data/../a", Fault::forwardSlash},
        {L"//server/share/a", Fault::forwardSlash},
        {L"C:\\\\a", Fault::emptyName},
        {L"C:\\a\\", Fault::emptyName},
        {L"C:\\a\\\\b", Fault::emptyName},
        {L"\\\\server\\\\a", Fault::emptyName},
        {L"\\\\server\\share\\a\\", Fault::emptyName},
        {L"C:\\a\\..\\b", Fault::dotName},
        {L"C:\\..", Fault::dotName},
        {L"C:\\.\\a", Fault::dotName},
        {L"\\\\..\\share\\a", Fault::dotName},
        {L"\\\\server\\..\\a", Fault::dotName},
        {L"C:\\a:stream", Fault::alternateStream},
        {L"C:\\a::$DATA", Fault::alternateStream},
        {L"C:\\C:\\a", Fault::alternateStream},
        {L"C:\\a*", Fault::forbiddenCharacter},
        {L"C:\\wh?t\\a", Fault::forbiddenCharacter},
        {L"C:\\<a>", Fault::forbiddenCharacter},
        {L"C:\\\"a\"", Fault::forbiddenCharacter},
        {L"C:\\a|b", Fault::forbiddenCharacter},
        {L"C:\\a\x1F", Fault::forbiddenCharacter},
        {std::wstring(L"C:\\a\0b", 6), Fault::forbiddenCharacter},
        {L"C:\\con", Fault::deviceName},
        {L"C:\\Aux\\a", Fault::deviceName},
        {L"C:\\NUL.tar.gz", Fault::deviceName},
        {L"C:\\prn  .txt", Fault::deviceName},
        {L"C:\\COM9", Fault::deviceName},
        {L"C:\\lpt1.txt", Fault::deviceName},
        {L"C:\\com\u00B9", Fault::deviceName},
        {L"C:\\COM\u00B2.log", Fault::deviceName},
        {L"C:\\LPT\u00B3", Fault::deviceName},
        {L"C:\\conin$", Fault::deviceName},
        {L"C:\\CONOUT$.txt", Fault::deviceName},
        {L"\\\\server\\pipe\\a", Fault::deviceName},
        {L"\\\\server\\IPC$", Fault::deviceName},
        {L"C:\\a.", Fault::trailingDotOrSpace},
        {L"C:\\a \\b", Fault::trailingDotOrSpace},
        {L"C:\\...", Fault::trailingDotOrSpace},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.path));
        EXPECT_EQ(checkRestorePath({.original = row.path, .target = row.path}), row.fault);
        EXPECT_EQ(checkRestorePath({.original = L"C:\\a", .target = row.path}), row.fault);
        EXPECT_EQ(checkRestorePath({.original = row.path,
                                    .prefix = row.path,
                                    .root = L"D:\\r",
                                    .target = L"D:\\r\\a"}),
                  row.fault);
    }
}

TEST(RestorePath, KeepsTheTargetBelowTheRoot) {
    struct Row {
        std::wstring root;
        std::wstring target;
        Fault ofFile;
        Fault ofDirectory;
    };
    const Row rows[] = {
        {L"D:\\r\\", L"D:\\r\\C\\a", Fault::none, Fault::none},
        {L"D:\\r", L"D:\\r\\a", Fault::none, Fault::none},
        {L"D:\\", L"D:\\a", Fault::none, Fault::none},
        {L"\\\\server\\share\\", L"\\\\server\\share\\a", Fault::none, Fault::none},
        {L"D:\\r\\", L"D:\\r\\", Fault::rootIsNoFile, Fault::none},
        {L"D:\\r\\", L"D:\\r", Fault::rootIsNoFile, Fault::none},
        {L"D:\\r", L"D:\\r\\", Fault::rootIsNoFile, Fault::none},
        {L"D:\\", L"D:\\", Fault::rootIsNoFile, Fault::none},
        {L"", L"D:", Fault::rootIsNoFile, Fault::none},
        {L"", L"D:\\", Fault::rootIsNoFile, Fault::none},
        {L"", L"\\\\server\\share", Fault::rootIsNoFile, Fault::none},
        {L"", L"\\\\server\\share\\", Fault::rootIsNoFile, Fault::none},
        {L"D:\\r\\", L"D:\\other", Fault::outsideRoot, Fault::outsideRoot},
        {L"D:\\r", L"D:\\rC\\a", Fault::outsideRoot, Fault::outsideRoot},
        {L"D:\\r\\", L"E:\\r\\a", Fault::outsideRoot, Fault::outsideRoot},
        {L"D:\\r\\", L"D:\\", Fault::outsideRoot, Fault::outsideRoot},
        {L"\\\\server\\share\\r", L"\\\\server\\share", Fault::outsideRoot, Fault::outsideRoot},
        {L"D:\\r\\", L"D:\\r\\..\\a", Fault::dotName, Fault::dotName},
        {L"D:\\r\\..\\", L"D:\\r\\..\\", Fault::dotName, Fault::dotName},
        {L"restore\\", L"restore\\a", Fault::notAbsolute, Fault::notAbsolute},
        {L"D:\\r\\\\", L"D:\\r\\\\a", Fault::emptyName, Fault::emptyName},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.target));
        RestorePathRequest request{.original = L"C:\\a", .root = row.root, .target = row.target};
        EXPECT_EQ(checkRestorePath(request), row.ofFile);
        request.directory = true;
        EXPECT_EQ(checkRestorePath(request), row.ofDirectory);
    }
}

TEST(RestorePath, KeepsTheOriginalBelowThePrefix) {
    struct Row {
        std::wstring prefix;
        std::wstring original;
        Fault fault;
    };
    const Row rows[] = {
        {L"C:\\data", L"C:\\data\\a", Fault::none},
        {L"c:\\Data", L"C:\\dATA\\a", Fault::none},
        {L"C:\\data", L"C:\\data", Fault::none},
        {L"C:", L"C:\\data", Fault::none},
        {L"\\\\server\\share", L"\\\\SERVER\\share\\a", Fault::none},
        {L"C:\\data", L"C:\\database\\a", Fault::outsidePrefix},
        {L"C:\\data", L"C:\\dat", Fault::outsidePrefix},
        {L"C:\\data", L"D:\\data\\a", Fault::outsidePrefix},
        {L"C:\\\u00E4", L"C:\\\u00C4\\a", Fault::outsidePrefix},
        {L"", L"C:\\a", Fault::none},
        {L"", L"\\\\server\\share\\a", Fault::noPlace},
        // Would lose the first character of its name.
        {L"C:\\data\\", L"C:\\data\\a", Fault::outsidePrefix},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.original));
        EXPECT_EQ(checkRestorePath({.original = row.original,
                                    .prefix = row.prefix,
                                    .root = L"D:\\r\\",
                                    .target = L"D:\\r\\a"}),
                  row.fault);
    }
}

TEST(RestorePath, KnowsWhichPartIsRestored) {
    const auto restored = [](std::wstring_view target, std::wstring_view root) {
        return std::wstring(target.substr(restoredPartOf(target, root)));
    };
    EXPECT_EQ(restored(L"D:\\r\\a\\b", L"D:\\r\\"), L"a\\b");
    EXPECT_EQ(restored(L"D:\\r\\a\\b", L"D:\\r"), L"a\\b");
    EXPECT_EQ(restored(L"D:\\a", L"D:\\"), L"a");
    EXPECT_EQ(restored(L"D:\\r\\a", L""), L"r\\a");
    EXPECT_EQ(restored(L"\\\\server\\share\\a\\b", L""), L"a\\b");
    EXPECT_EQ(restored(L"\\\\server\\share", L""), L"");
    EXPECT_EQ(restored(L"D:", L""), L"");
    EXPECT_EQ(restored(L"D:\\r", L"D:\\r\\"), L"");
}

TEST(RestorePath, HasACodeAndWordsForEveryFault) {
    std::set<std::string> words;
    for (int i = 1; i <= static_cast<int>(Fault::unknownParent); ++i) {
        EXPECT_NE(restorePathCode(static_cast<Fault>(i)), 0u) << i;
        EXPECT_TRUE(words.insert(restorePathText(static_cast<Fault>(i))).second) << i;
    }
    EXPECT_EQ(restorePathCode(Fault::none), 0u);
    EXPECT_FALSE(words.contains(""));
}

}  // namespace
}  // namespace dorvo
