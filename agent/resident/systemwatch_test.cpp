#include "resident/systemwatch.h"

#include <gtest/gtest.h>

namespace dorvo::agent {
namespace {

TEST(SystemWatch, TellsAWakeFromAChangeOfTheClock) {
    using enum SystemWatch::News;
    EXPECT_EQ(SystemWatch::newsOfMessage(WM_TIMECHANGE, 0), clockChange);
    EXPECT_EQ(SystemWatch::newsOfMessage(WM_POWERBROADCAST, PBT_APMRESUMEAUTOMATIC), wake);
    EXPECT_EQ(SystemWatch::newsOfMessage(WM_POWERBROADCAST, PBT_APMSUSPEND), none);
    EXPECT_EQ(SystemWatch::newsOfMessage(WM_CLOSE, PBT_APMRESUMEAUTOMATIC), none);
    EXPECT_EQ(SystemWatch::newsOfControl(SERVICE_CONTROL_TIMECHANGE, 0), clockChange);
    EXPECT_EQ(SystemWatch::newsOfControl(SERVICE_CONTROL_POWEREVENT, PBT_APMRESUMEAUTOMATIC), wake);
    EXPECT_EQ(SystemWatch::newsOfControl(SERVICE_CONTROL_POWEREVENT, PBT_APMSUSPEND), none);
    EXPECT_EQ(SystemWatch::newsOfControl(SERVICE_CONTROL_INTERROGATE, 0), none);
    // Another program may have refused the end that was asked about.
    EXPECT_FALSE(SystemWatch::messageEndsSession(WM_QUERYENDSESSION, TRUE));
    EXPECT_FALSE(SystemWatch::messageEndsSession(WM_ENDSESSION, FALSE));
    EXPECT_TRUE(SystemWatch::messageEndsSession(WM_ENDSESSION, TRUE));
}

}  // namespace
}  // namespace dorvo::agent
