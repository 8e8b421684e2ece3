#include "engine/verbrefusal.h"

#include <gmock/gmock.h>

namespace dorvo::agent {
namespace {

using testing::AllOf;
using testing::HasSubstr;

TEST(VerbRefusal, SaysWhereToLookForARecordThatCannotBeRead) {
    EXPECT_THAT(refusalOf(JobVerb::start, 0),
                AllOf(HasSubstr("Dorvo\\log' says why"), HasSubstr("agent remove")));
}

}  // namespace
}  // namespace dorvo::agent
