#include "job/restorepathlinks.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "support/temporary_folder.h"

namespace dorvo {
namespace {

using Fault = RestorePathFault;

constexpr uint32_t plain = FILE_ATTRIBUTE_DIRECTORY;
constexpr uint32_t reparse = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
constexpr uint32_t cloudTag = 0x9000601A;

// Real junctions cannot be made here, so one folder of the way is said to be something else.
TEST(RestorePathLinks, RefusesAWayThatLeadsElsewhere) {
    struct Row {
        const char* name;
        std::wstring target;
        std::wstring root;
        RestoreFolder odd;  // what "D:\r\a" is
        Fault fault;
    };
    const Row rows[] = {
        {"plain folder", L"D:\\r\\a\\b", L"D:\\r\\", {0, plain, 0, false}, Fault::none},
        {"junction", L"D:\\r\\a\\b", L"D:\\r\\", {0, reparse, 0xA0000003, false}, Fault::link},
        {"mounted volume", L"D:\\r\\a\\b", L"", {0, reparse, 0xA0000003, true}, Fault::none},
        {"symbolic link", L"D:\\r\\a\\b", L"D:\\r", {0, reparse, 0xA000000C, false}, Fault::link},
        {"untold tag", L"D:\\r\\a\\b", L"D:\\", {0, reparse, 0, false}, Fault::link},
        {"far below", L"D:\\r\\a\\b\\c\\d", L"", {0, reparse, 0xA0000003, false}, Fault::link},
        {"cloud folder", L"D:\\r\\a\\b", L"D:\\r\\", {0, reparse, cloudTag, false}, Fault::none},
        {"the target itself", L"D:\\r\\a", L"D:\\r\\", {0, reparse, 0, false}, Fault::none},
        {"the root itself", L"D:\\r\\a\\b", L"D:\\r\\a\\", {0, reparse, 0, false}, Fault::none},
        {"not there", L"D:\\r\\a\\b", L"D:\\r\\", {ERROR_FILE_NOT_FOUND, 0, 0, false}, Fault::none},
        {"denied",
         L"D:\\r\\a\\b",
         L"D:\\r\\",
         {ERROR_ACCESS_DENIED, 0, 0, false},
         Fault::unknownParent},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const auto look = [&](const std::wstring& path) {
            return path == L"D:\\r\\a" ? row.odd : RestoreFolder{0, plain, 0, false};
        };
        EXPECT_EQ(findRestoreLink(row.target, row.root, look), row.fault);
    }
}

TEST(RestorePathLinks, LooksAtTheDisk) {
    const test::TemporaryFolder ground(L"dorvo_links");
    const std::wstring folder = ground.path() + L"\\Umw\u00E4g";
    ASSERT_TRUE(CreateDirectoryW(folder.c_str(), nullptr));
    EXPECT_EQ(lookAtFolder(folder).attributes & reparse, plain);
    EXPECT_EQ(lookAtFolder(folder + L"x").error, DWORD{ERROR_FILE_NOT_FOUND});

    const std::wstring target = folder + L"\\missing\\a";
    EXPECT_EQ(judgeRestorePath({.original = L"C:\\\u00C4\\a",
                                .prefix = L"c:\\\u00E4",
                                .root = folder,
                                .target = target}),
              Fault::none);
    EXPECT_EQ(judgeRestorePath({.original = L"C:\\a", .root = folder, .target = folder}),
              Fault::rootIsNoFile);
}

}  // namespace
}  // namespace dorvo
