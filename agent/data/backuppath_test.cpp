#include "data/backuppath.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "data/sourcepath.h"

namespace dorvo::agent {
namespace {

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
