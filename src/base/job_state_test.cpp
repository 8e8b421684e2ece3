#include "base/job_state.h"

#include <gtest/gtest.h>

namespace dorvo {
namespace {

TEST(JobStateText, GoesBothWays) {
    struct Row {
        int32_t state;
        const char* text;
    };
    constexpr Row rows[] = {{0, "none"},       {1, "idle"},      {2, "starting"}, {3, "running"},
                            {4, "completing"}, {5, "pausing"},   {6, "paused"},   {7, "completed"},
                            {8, "canceling"},  {9, "cancelled"}, {10, "error"},   {11, "created"},
                            {12, "updated"},   {13, "deleted"},  {14, "unloaded"}};
    for (const Row& row : rows) {
        EXPECT_STREQ(jobStateToString(row.state), row.text);
        EXPECT_EQ(jobStateFromString(row.text), row.state);
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
