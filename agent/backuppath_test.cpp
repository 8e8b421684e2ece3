#include "backuppath.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "agenterror.h"
#include "sourcepath.h"

namespace dorvo::agent {
namespace {

TEST(BackupPath, TakesEveryWayToWriteAPathAndKeepsNamesAsTheyAre) {
    struct Row {
        const char* given;
        const wchar_t* expected;
    };
    for (const Row& row :
         {Row{"C:\\data\\a.txt", L"C:\\data\\a.txt"}, Row{"c:/Data/", L"C:\\Data"},
          Row{"c:\\", L"C:"}, Row{"C:", L"C:"}, Row{"\\\\?\\c:\\x\\", L"C:\\x"},
          Row{"//server/share/x", L"\\\\server\\share\\x"}, Row{"C:\\odd. ", L"C:\\odd. "},
          Row{"C:\\nul", L"C:\\nul"}, Row{"", L""}, Row{"a*", L""}}) {
        EXPECT_EQ(backupPath(row.given), row.expected) << row.given;
    }
    EXPECT_EQ(backupPath("a\\b"), absolutePath(L"a\\b"));
}

// Holds C:\windows\system32\a.txt, the folder it lies in, and a file of a drive's root.
class FakeCatalog : public RestoreCatalog {
public:
    bool list(const std::wstring& path, const std::string&, Page& page) override {
        page = {};
        for (const auto& [held, attributes] :
             {std::pair{L"C:\\windows\\system32", FILE_ATTRIBUTE_DIRECTORY},
              {L"C:\\windows\\system32\\a.txt", FILE_ATTRIBUTE_ARCHIVE},
              {L"Q:\\b.txt", FILE_ATTRIBUTE_ARCHIVE}}) {
            const std::wstring item = held;
            if (item == path || item.rfind(path + L"\\", 0) == 0) {
                page.items.push_back({item, {}});
                page.items.back().data.dwFileAttributes = static_cast<DWORD>(attributes);
            }
        }
        return !fails;
    }

    bool fails = false;
};

TEST(FindHeldPath, FindsWhatTheBackupHoldsInTheCaseOfTheDiskIfNeedBe) {
    struct Row {
        const char* given;
        const wchar_t* held;  // empty: nothing
        bool folder;
    };
    FakeCatalog catalog;
    HeldPath held;
    for (const Row& row :
         {Row{"C:/windows/system32/a.txt", L"C:\\windows\\system32\\a.txt", false},
          Row{"C:\\windows", L"C:\\windows", true},
          Row{"C:\\WINDOWS\\System32", L"C:\\windows\\system32", true}, Row{"Q:\\", L"Q:", true},
          Row{"Q:\\B.TXT", L"", true}, Row{"C:\\windows\\system", L"", true}}) {
        ASSERT_TRUE(findHeldPath(catalog, row.given, held)) << row.given;
        EXPECT_EQ(held.path, row.held) << row.given;
        EXPECT_EQ(held.folder, row.folder) << row.given;
    }
    EXPECT_THROW(findHeldPath(catalog, "*", held), AgentError);
    catalog.fails = true;
    EXPECT_FALSE(findHeldPath(catalog, "C:\\windows", held));
}

}  // namespace
}  // namespace dorvo::agent
