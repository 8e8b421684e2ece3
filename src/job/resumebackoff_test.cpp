#include "job/resumebackoff.h"

#include <gtest/gtest.h>

namespace dorvo {
namespace {

TEST(ResumeBackoff, GrowsUntilTheRunComesFurther) {
    ResumeBackoff backoff;
    RunProgress at;
    for (const uint64_t seconds : {30, 60, 120, 240, 300, 300}) {
        EXPECT_EQ(backoff.afterFailureAt(at), seconds * 1000);
    }
    for (uint64_t RunProgress::*const field :
         {&RunProgress::listed, &RunProgress::position, &RunProgress::offset}) {
        at.*field += 1;
        EXPECT_EQ(backoff.afterFailureAt(at), 30'000u);
        EXPECT_EQ(backoff.afterFailureAt(at), 60'000u);
    }
    at.blocks = 1;
    EXPECT_EQ(backoff.afterFailureAt(at), 30'000u);
    backoff.reset();
    EXPECT_EQ(backoff.afterFailureAt(at), 30'000u);
}

}  // namespace
}  // namespace dorvo
