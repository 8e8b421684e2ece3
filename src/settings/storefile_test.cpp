#include "settings/storefile.h"

#include <gtest/gtest.h>

#include "support/store_test.h"

namespace dorvo {
namespace {

class StoreFileTest : public test::StoreTest {};

TEST_F(StoreFileTest, OnlyWhatIsOnTheDiskTakesAnothersPlace) {
    const std::wstring fresh = dataPath(L"\\fresh");
    const std::wstring old = dataPath(L"\\old");
    write(fresh, "new");
    write(old, "old");
    EXPECT_TRUE(replaceFlushed(fresh, old));
    EXPECT_EQ(contentOf(old), "new");
    EXPECT_TRUE(isMissing(fresh));
    // A folder can be renamed like a file, but not be flushed like one.
    createDirectories(fresh);
    const std::wstring free = dataPath(L"\\free");
    EXPECT_FALSE(replaceFlushed(fresh, free));
    EXPECT_TRUE(isMissing(free));
    EXPECT_TRUE(fileExists(fresh));
}

}  // namespace
}  // namespace dorvo
