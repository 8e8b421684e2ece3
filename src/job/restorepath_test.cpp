#include "job/restorepath.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace dorvo {
namespace {

using Fault = RestorePathFault;

// Judged as an original that goes back to its place, and as what another location makes of it.
TEST(RestorePath, AllowsOnlyPlainAbsolutePaths) {
    const std::pair<Fault, std::vector<std::wstring>> rows[] = {
        {Fault::none,
         {L"C:\\data\\a.txt", L"z:\\.git\\ leading and.dots..in it",
          // Not without the long form.
          L"C:\\con", L"C:\\Aux\\a", L"C:\\NUL.tar.gz", L"C:\\prn  .txt", L"C:\\COM9",
          L"C:\\lpt1.txt", L"C:\\conin$", L"C:\\a.", L"C:\\a \\b", L"C:\\a. .",
          L"C:\\con1\\com0\\com10\\LPT\\aux-\\null.txt\\conin$x", L"\\\\server\\share$\\a",
          L"C:\\" + std::wstring(255, L'n')}},
        {Fault::deviceShare, {L"\\\\server\\pipe\\a", L"\\\\server\\IPC$"}},
        {Fault::nameTooLong, {L"C:\\" + std::wstring(256, L'n') + L"\\a"}},
        {Fault::notAbsolute,
         {L"", L"a", L"data\\a", L"\\data\\a", L"C:a", L"C:..\\a", L"1:\\a", L"CC:\\a", L"\\\\",
          L"\\\\server", L"\\\\server\\", L"\\\\\\share\\a"}},
        {Fault::otherScheme,
         {L"\\\\?\\C:\\a", L"\\\\?\\UNC\\server\\share\\a", L"\\\\.\\PhysicalDrive0",
          L"\\??\\C:\\a", L"\\\\??\\C:\\a"}},
        {Fault::forwardSlash, {L"C:/data/a", L"C:\\data/../a", L"//server/share/a"}},
        {Fault::emptyName,
         {L"C:\\\\a", L"C:\\a\\", L"C:\\a\\\\b", L"\\\\server\\\\a", L"\\\\server\\share\\a\\"}},
        {Fault::dotName,
         {L"C:\\a\\..\\b", L"C:\\..", L"C:\\.\\a", L"\\\\..\\share\\a", L"\\\\server\\..\\a"}},
        {Fault::alternateStream, {L"C:\\a:stream", L"C:\\a::$DATA", L"C:\\C:\\a"}},
        {Fault::forbiddenCharacter,
         {L"C:\\a*", L"C:\\wh?t\\a", L"C:\\<a>", L"C:\\\"a\"", L"C:\\a|b", L"C:\\a\x1F",
          std::wstring(L"C:\\a\0b", 6)}},
        {Fault::onlyDotsAndSpaces, {L"C:\\...", L"C:\\.. \\a", L"C:\\ "}},
    };
    for (const auto& [fault, paths] : rows) {
        for (const std::wstring& path : paths) {
            SCOPED_TRACE(testing::PrintToString(path));
            EXPECT_EQ(checkRestorePath({.original = path, .target = path}), fault);
            EXPECT_EQ(checkRestorePath({.original = L"C:\\a", .target = path}), fault);
            const std::wstring target = L"D:\\r\\a";
            EXPECT_EQ(checkRestorePath(
                          {.original = path, .prefix = path, .root = L"D:\\r", .target = target}),
                      fault);
        }
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

}  // namespace
}  // namespace dorvo
