#include "base/disk_room.h"

#include <gtest/gtest.h>

#include "support/temporary_folder.h"

namespace dorvo {
namespace {

TEST(DiskRoom, IsThatOfTheNearestFolderThatIsThere) {
    const test::TemporaryFolder folder(L"dorvo-disk-room");
    const std::wstring& there = folder.path();
    EXPECT_GT(diskRoom(there).value_or(0), 0u);
    EXPECT_GT(diskRoom(there + L"\\not\\there").value_or(0), 0u);
    EXPECT_EQ(diskRoom(L""), std::nullopt);
    EXPECT_EQ(diskRoom(L"nowhere"), std::nullopt);
}

TEST(DiskRoom, TwoNeedsOnOneDiskAddUp) {
    const test::TemporaryFolder folder(L"dorvo-disk-room");
    const std::wstring& there = folder.path();
    const uint64_t most = diskRoom(there).value_or(0) / 5 * 3;
    EXPECT_TRUE(fitsOnDisk({there, most}, {there + L"\\x", 0}));
    EXPECT_TRUE(fitsOnDisk({there, 0}, {there + L"\\x", most}));
    EXPECT_FALSE(fitsOnDisk({there, most}, {there + L"\\x", most}));
    EXPECT_FALSE(fitsOnDisk({L"nowhere", 1}, {there, most * 2}));
    EXPECT_FALSE(fitsOnDisk({there, most * 2}, {L"nowhere", 1}));
    EXPECT_TRUE(fitsOnDisk({L"nowhere", most * 2}, {there, 1})) << "only trying shows";
}

}  // namespace
}  // namespace dorvo
