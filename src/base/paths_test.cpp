#include "base/paths.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "base/files.h"
#include "base/handle.h"
#include "support/files.h"
#include "support/temporary_folder.h"

namespace dorvo {
namespace {

using test::exists;

TEST(JobId, NamesExactlyOneFolder) {
    for (const char* id : {"a", "0b1c", "Daily backup", "ümlaut", "a.b", "COM10", "console"}) {
        EXPECT_TRUE(isJobId(id)) << id;
    }
    for (const char* id : {"", ".", "..", "a/b", "a\\b", "c:", "a*", "a?", "a\"b", "a<b", "a|b",
                           "x.", "x ", "CON", "nul", "Nul.txt", "com1", "LPT9.log", "a\nb"}) {
        EXPECT_FALSE(isJobId(id)) << id;
    }
    EXPECT_FALSE(isJobId(std::string(129, 'a')));
    EXPECT_FALSE(isJobId(std::string("a\0b", 3)));
}

TEST(JobDirectory, LeavesThePathEmptyForAnIdThatWouldLeaveTheRoot) {
    std::wstring path = L"before";
    EXPECT_FALSE(jobDirectory("..\\..\\Windows", path));
    EXPECT_TRUE(path.empty());
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_NAME});

    ASSERT_TRUE(jobDirectory("job-1", path));
    std::wstring data;
    ASSERT_TRUE(dataDirectory(data));
    EXPECT_EQ(path, data + L"\\job\\job-1");
    EXPECT_NE(data.find(L"\\trevold\\Dorvo"), std::wstring::npos);
}

TEST(LongPath, PrefixesAbsolutePathsOnly) {
    const std::pair<const wchar_t*, const wchar_t*> rows[] = {
        {L"C:\\a", L"\\\\?\\C:\\a"},
        {L"C:/a/b", L"\\\\?\\C:\\a\\b"},
        {L"C:\\", L"\\\\?\\C:\\"},
        {L"C:a", L"C:a"},
        {L"a\\b", L"a\\b"},
        {L"\\\\server\\share\\x", L"\\\\?\\UNC\\server\\share\\x"},
        {L"\\\\?\\C:\\a", L"\\\\?\\C:\\a"},
        {L"\\\\.\\pipe\\x", L"\\\\.\\pipe\\x"},
        {L"\\\\?\\GLOBALROOT\\Device\\Copy1\\a", L"\\\\?\\GLOBALROOT\\Device\\Copy1\\a"},
        {L"", L""},
    };
    for (const auto& [path, expected] : rows) {
        EXPECT_EQ(longPath(path), expected);
    }
}

class RmRf : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(createDirectories(root_ + L"\\a\\b\\c")); }

    static FileHandle touch(const std::wstring& path, DWORD attributes = FILE_ATTRIBUTE_NORMAL) {
        FileHandle file(CreateFileW(longPath(path).c_str(), GENERIC_WRITE, 0, nullptr,
                                    CREATE_ALWAYS, attributes, nullptr));
        EXPECT_TRUE(file) << GetLastError();
        return file;
    }

    test::TemporaryFolder ground_{L"rm_rf_test"};
    const std::wstring& root_ = ground_.path();
};

TEST_F(RmRf, RemovesReadOnlyHiddenAndDeepEntries) {
    touch(root_ + L"\\a\\readonly", FILE_ATTRIBUTE_READONLY);
    touch(root_ + L"\\a\\b\\hidden", FILE_ATTRIBUTE_HIDDEN);
    const std::wstring name(100, L'x');
    const std::wstring deep = root_ + L"\\" + name + L"\\" + name + L"\\" + name;
    ASSERT_TRUE(createDirectories(deep)) << GetLastError();
    touch(deep + L"\\file");
    EXPECT_TRUE(rm_rf(root_, true));
    EXPECT_FALSE(exists(root_));
}

TEST_F(RmRf, KeepsTheFolderItselfWhenAskedAndTakesAMissingPathAsDone) {
    EXPECT_TRUE(rm_rf(root_, false));
    EXPECT_TRUE(exists(root_));
    EXPECT_FALSE(exists(root_ + L"\\a"));
    touch(root_ + L"\\file");
    EXPECT_TRUE(rm_rf(root_ + L"\\file", false));
    EXPECT_FALSE(exists(root_ + L"\\file"));
    EXPECT_TRUE(rm_rf(root_ + L"\\file", true));
    EXPECT_TRUE(rm_rf(root_ + L"\\no folder\\file", true));
}

TEST_F(RmRf, GoesOnPastAnEntryThatIsInUse) {
    touch(root_ + L"\\a\\last");
    const FileHandle held = touch(root_ + L"\\a\\b\\held");
    EXPECT_FALSE(rm_rf(root_, true));
    EXPECT_FALSE(exists(root_ + L"\\a\\last"));
    EXPECT_TRUE(exists(root_ + L"\\a\\b\\held"));
}

}  // namespace
}  // namespace dorvo
