#include "settings/storefile.h"

#include <gtest/gtest.h>

#include <utility>

#include "base/sharing_retry.h"
#include "support/fails_with.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

class StoreFileTest : public test::StoreTest {};

TEST_F(StoreFileTest, WhatIsReplacedIsWholeAtEveryMoment) {
    const std::wstring path = dataPath(L"\\store");
    const std::wstring fresh = path + L".new";
    write(fresh, "half a te");  // of a process that was killed
    EXPECT_TRUE(replaceStore(path, "old"));
    EXPECT_EQ(contentOf(path), "old");
    EXPECT_TRUE(isMissing(fresh));
    EXPECT_FAILS(ERROR_PATH_NOT_FOUND, replaceStore(dataPath(L"\\none\\store"), "new"));
    static FileHandle held;
    held.reset(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                           OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(held);
    const auto pause = std::exchange(SharingRetry::pause, [](DWORD) {});
    EXPECT_FALSE(replaceStore(path, "new"));
    EXPECT_EQ(contentOf(path), "old");
    EXPECT_TRUE(isMissing(fresh)) << "nothing is left of it";
    // Once let go of, the new one cannot be flushed, for a while; it could be renamed.
    static std::wstring unflushed;
    static int pauses;
    unflushed = fresh;
    pauses = 0;
    SharingRetry::pause = [](DWORD) {
        held.reset(pauses++ != 0 ? INVALID_HANDLE_VALUE
                                 : CreateFileW(unflushed.c_str(), GENERIC_READ,
                                               FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                               OPEN_EXISTING, 0, nullptr));
    };
    EXPECT_TRUE(replaceStore(path, "new")) << GetLastError();
    EXPECT_EQ(contentOf(path), "new");
    EXPECT_EQ(pauses, 2);
    write(fresh, "half a te");
    held.reset(CreateFileW(fresh.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    SharingRetry::pause = [](DWORD) { held.reset(); };
    EXPECT_TRUE(replaceStore(path, "newer")) << "who looks at what was left is waited for";
    SharingRetry::pause = pause;
}

}  // namespace
}  // namespace dorvo
