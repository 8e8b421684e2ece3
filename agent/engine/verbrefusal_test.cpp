#include "engine/verbrefusal.h"

#include <gtest/gtest.h>

#include <vector>

#include "base/job_state.h"

namespace dorvo::agent {
namespace {

using enum JobState;

// What each state refuses: whoever adds a state or a verb decides here.
TEST(VerbRefusal, SaysWhatAStateRefuses) {
    struct Row {
        JobState state;
        bool start, resume, pause, stop, definition;
    };
    constexpr bool yes = true;
    constexpr bool no = false;
    // clang-format off
    constexpr Row rows[] = {
        //            start resume pause stop definition
        {none,        no,   no,    no,   no,  no},
        {idle,        yes,  no,    yes,  no,  yes},
        {starting,    yes,  yes,   yes,  yes, no},
        {running,     yes,  yes,   yes,  yes, no},
        {completing,  yes,  yes,   yes,  yes, no},
        {pausing,     no,   no,    yes,  yes, no},
        {paused,      yes,  yes,   yes,  yes, no},
        {completed,   yes,  no,    no,   no,  yes},
        {canceling,   no,   no,    no,   yes, no},
        {cancelled,   yes,  no,    no,   no,  yes},
        {error,       yes,  no,    no,   no,  yes},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(jobStateToString(row.state));
        const auto state = static_cast<int32_t>(row.state);
        EXPECT_EQ(refusalOf(JobVerb::start, state).empty(), row.start);
        EXPECT_EQ(refusalOf(JobVerb::resume, state).empty(), row.resume);
        EXPECT_EQ(refusalOf(JobVerb::pause, state).empty(), row.pause);
        EXPECT_EQ(refusalOf(JobVerb::stop, state).empty(), row.stop);
        EXPECT_EQ(refusalOf(JobVerb::remove, state), "");
        EXPECT_EQ(refusalOfDefinition(state).empty(), row.definition);
    }
}

}  // namespace
}  // namespace dorvo::agent
