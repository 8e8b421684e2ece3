#include "base/job_state.h"

#include <gtest/gtest.h>

namespace dorvo {
namespace {

TEST(JobStateText, GoesBothWays) {
    const char* const texts[] = {"none",    "idle",    "starting",  "running",   "completing",
                                 "pausing", "paused",  "completed", "canceling", "cancelled",
                                 "error",   "created", "updated",   "deleted",   "unloaded"};
    for (int32_t state = 0; state < 15; ++state) {
        EXPECT_STREQ(jobStateToString(state), texts[state]);
        EXPECT_EQ(jobStateFromString(texts[state]), state);
    }
    for (const int32_t unknown : {-1, 15, 42}) {
        EXPECT_STREQ(jobStateToString(unknown), "none");
    }
    for (const char* unknown :
         {static_cast<const char*>(nullptr), "", "Idle", "idle ", "canceled"}) {
        EXPECT_EQ(jobStateFromString(unknown), 0);
    }
}

}  // namespace
}  // namespace dorvo
