#include "text/failuretext.h"

#include <gmock/gmock.h>
#include <windows.h>

#include "base/error_codes.h"

namespace dorvo::agent {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

TEST(FailureText, SaysWhatHappenedToWhatAndWhatToDo) {
    EXPECT_EQ(failureText(ERROR_CANNOT_MAKE),
              "A folder stands where the file should go (error 82)");
    EXPECT_THAT(failureText(ERROR_FILE_NOT_FOUND),
                AllOf(EndsWith(" (error 2)"), Not(HasSubstr(". ("))));
    EXPECT_EQ(failureText(withHttpMark(403)), "HTTP status 403, Forbidden");
    EXPECT_THAT(runFailure(withHttpMark(401), "alice"), HasSubstr("run 'agent login alice'"));
    EXPECT_THAT(runFailure(withHttpMark(503), "alice"), HasSubstr("its disk is full"));
    EXPECT_THAT(runFailure(withHttpMark(503), "alice", "no room"), HasSubstr("no room"));
    EXPECT_THAT(runFailure(WSAECONNREFUSED, "alice"), HasSubstr("agent server set"));
    EXPECT_THAT(runFailure(ERROR_DISK_FULL, "alice"), EndsWith("make room on the disk of the data "
                                                               "directory"));
    EXPECT_THAT(runFailure(errorKeyMissing, "alice"),
                AllOf(HasSubstr("alice"), HasSubstr("agent key import")));
}

}  // namespace
}  // namespace dorvo::agent
