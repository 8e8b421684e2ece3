#include "storage/wire_time.h"

#include <gtest/gtest.h>

namespace dorvo {
namespace {

TEST(WireTime, IsWrittenWithTwoDigits) {
    EXPECT_EQ(wire_time(0), "");
    EXPECT_EQ(wire_time(129'436'887'670'000'000), "2011-03-04 05:06:07");
}

}  // namespace
}  // namespace dorvo
