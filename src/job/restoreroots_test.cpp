// Where links on the way are the user's own.
#include "job/restoreroots.h"

#include <gtest/gtest.h>

#include "record/jobactsrcwriter.h"
#include "support/temporary_folder.h"

namespace dorvo {
namespace {

TEST(RestoreRoots, AreWhatWasNamedOrElseWhatWasBackedUp) {
    const test::TemporaryFolder ground(L"dorvo_roots");
    const std::wstring list = ground.path() + L"\\src";
    ASSERT_TRUE(writeSourceListFile(list, [](JobHistorySourceWriter& writer) {
        WIN32_FILE_ATTRIBUTE_DATA data{};
        uint64_t number = 0;
        const auto add = [&](const wchar_t* path, DWORD attributes) {
            data.dwFileAttributes = attributes;
            return writer.addEntry(path, data, ++number);
        };
        return add(L"C:\\link\\docs", FILE_ATTRIBUTE_DIRECTORY) &&
               add(L"C:\\link\\docs\\sub", FILE_ATTRIBUTE_DIRECTORY) &&
               add(L"C:\\link\\docs\\sub\\a", FILE_ATTRIBUTE_ARCHIVE) &&
               add(L"C:\\link\\docs2", FILE_ATTRIBUTE_ARCHIVE);
    }));
    RestoreRoots all({}, list);
    EXPECT_EQ(all.above(L"C:\\link\\docs\\sub\\a"), L"C:\\link\\docs");
    EXPECT_EQ(all.above(L"C:\\link\\docs"), L"C:\\link\\docs");
    EXPECT_EQ(all.above(L"C:\\link\\docs2"), L"C:\\link\\docs2");
    EXPECT_EQ(all.above(L"C:\\link\\other"), L"");
    RestoreRoots named({L"C:\\link\\docs\\sub\\a", L"D:\\", L"D:\\x"}, list);
    EXPECT_EQ(named.above(L"C:\\link\\docs\\sub\\a"), L"C:\\link\\docs\\sub\\a");
    EXPECT_EQ(named.above(L"C:\\link\\docs"), L"");
    EXPECT_EQ(named.above(L"D:\\x\\y"), L"D:\\x");
    EXPECT_EQ(named.above(L"D:\\y"), L"D:");
}

}  // namespace
}  // namespace dorvo
