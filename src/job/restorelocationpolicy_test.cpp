#include "job/restorelocationpolicy.h"

#include <gtest/gtest.h>

#include <set>

namespace dorvo {
namespace {

// A policy over a disk that holds some paths.
template <class Policy>
class OnDisk : public Policy {
public:
    using Policy::Policy;
    std::set<std::wstring> disk;

protected:
    bool exists(const std::wstring& path) const override { return disk.contains(path); }
};

using Original = OnDisk<RestoreOriginalLocationPolicy>;
using Other = OnDisk<RestoreOtherLocationPolicy>;

TEST(RestoreLocationPolicy, ResolvesConflicts) {
    const std::wstring file = L"C:\\a.txt";
    const std::set<std::wstring> taken = {file};
    struct Row {
        const char* name;
        int32_t conflict;
        bool noCheck;
        std::set<std::wstring> disk;
        std::wstring target;  // empty: left out
    };
    const Row rows[] = {
        {"keep, free", 1, false, {}, file},
        {"keep, taken", 1, false, taken, L""},
        {"keep, unchecked", 1, true, taken, file},
        {"rename, free", 3, false, {}, file},
        {"rename, taken", 3, false, taken, file + L".0"},
        {"rename, twice taken", 3, false, {file, file + L".0"}, file + L".0.1"},
        {"rename, unchecked", 3, true, taken, file},
        {"overwrite", 2, false, taken, file},
        {"unknown mode", -7, false, taken, file},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Original original(row.conflict);
        Other other(row.conflict, L"C:\\", L"Z:");
        original.disk = other.disk = row.disk;
        std::wstring target;
        EXPECT_EQ(original.targetPath(file.c_str(), row.noCheck, target), !row.target.empty());
        EXPECT_TRUE(row.target.empty() || target == row.target);
        EXPECT_EQ(other.targetPath(L"Z:\\a.txt", row.noCheck, target), !row.target.empty());
        EXPECT_TRUE(row.target.empty() || target == row.target);
    }
}

TEST(RestoreLocationPolicy, ComposesTheTarget) {
    struct Row {
        const wchar_t* location;
        const wchar_t* prefix;
        const wchar_t* original;
        std::wstring target;
    };
    const Row rows[] = {
        {L"D:\\restore\\", L"", L"C:\\data\\a.txt", L"D:\\restore\\C\\data\\a.txt"},
        {L"D:/restore/", L"", L"C:\\data\\a.txt", L"D:\\restore\\C\\data\\a.txt"},
        {L"D:\\restore", L"", L"C:\\data\\a.txt", L"D:\\restoreC\\data\\a.txt"},
        {L"D:\\restore\\", L"", L"C:", L"D:\\restore\\"},
        {L"D:\\restore\\", L"", L"\\\\server\\share\\a", L"D:\\restore\\"},
        {L"D:\\restore\\", L"C:\\data", L"C:\\data\\sub\\a.txt", L"D:\\restore\\sub\\a.txt"},
        {L"D:\\restore\\", L"C:\\data", L"C:\\data\\", L"D:\\restore\\"},
        {L"D:\\restore\\", L"C:\\data", L"C:\\data", L"D:\\restore\\"},
        {L"D:\\restore\\", L"C:\\data", L"C:", L"D:\\restore\\"},
        {nullptr, L"C:", L"C:\\a", L"a"},
    };
    for (const Row& row : rows) {
        const Other policy(1, row.location, row.prefix);
        std::wstring target = L"former";
        EXPECT_TRUE(policy.targetPath(row.original, true, target));
        EXPECT_EQ(target, row.target);
    }
}

TEST(RestoreLocationPolicy, LeavesOutAnItemWithoutAPath) {
    std::wstring target;
    for (const wchar_t* path : {static_cast<const wchar_t*>(nullptr), L""}) {
        EXPECT_FALSE(Original(2).targetPath(path, true, target));
        EXPECT_FALSE(Other(2, L"D:\\", L"C:").targetPath(path, true, target));
    }
}

}  // namespace
}  // namespace dorvo
