#include "descriptor_limit.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <stdexcept>

namespace dorvo {

namespace {

TEST(DescriptorLimit, LeavesRoomForWhatServingNeeds) {
    EXPECT_EQ(fittingConnections(1024, 1'000'000), 1024U);
    EXPECT_EQ(fittingConnections(1024, 1024), 896U);
    EXPECT_EQ(fittingConnections(1024, 144), 16U);
    EXPECT_THROW(fittingConnections(1024, 143), std::runtime_error);
}

TEST(DescriptorLimit, IsRaisedAsFarAsItGoes) {
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit before = limit;
    limit.rlim_cur = 200;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(raiseDescriptorLimit(), before.rlim_max);
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(limit.rlim_cur, before.rlim_max);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

}  // namespace

}  // namespace dorvo
