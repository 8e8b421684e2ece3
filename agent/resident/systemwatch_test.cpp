#include "resident/systemwatch.h"

#include <gtest/gtest.h>

namespace dorvo::agent {
namespace {

TEST(SystemWatch, KnowsWhatMakesTheTimeJump) {
    EXPECT_TRUE(SystemWatch::messageChangesTime(WM_TIMECHANGE, 0));
    EXPECT_TRUE(SystemWatch::messageChangesTime(WM_POWERBROADCAST, PBT_APMRESUMEAUTOMATIC));
    EXPECT_FALSE(SystemWatch::messageChangesTime(WM_POWERBROADCAST, PBT_APMSUSPEND));
    EXPECT_FALSE(SystemWatch::messageChangesTime(WM_CLOSE, PBT_APMRESUMEAUTOMATIC));
    EXPECT_TRUE(SystemWatch::controlChangesTime(SERVICE_CONTROL_TIMECHANGE, 0));
    EXPECT_TRUE(
        SystemWatch::controlChangesTime(SERVICE_CONTROL_POWEREVENT, PBT_APMRESUMEAUTOMATIC));
    EXPECT_FALSE(SystemWatch::controlChangesTime(SERVICE_CONTROL_POWEREVENT, PBT_APMSUSPEND));
    EXPECT_FALSE(SystemWatch::controlChangesTime(SERVICE_CONTROL_INTERROGATE, 0));
    // Another program may have refused the end that was asked about.
    EXPECT_FALSE(SystemWatch::messageEndsSession(WM_QUERYENDSESSION, TRUE));
    EXPECT_FALSE(SystemWatch::messageEndsSession(WM_ENDSESSION, FALSE));
    EXPECT_TRUE(SystemWatch::messageEndsSession(WM_ENDSESSION, TRUE));
}

}  // namespace
}  // namespace dorvo::agent
