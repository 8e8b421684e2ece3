#include "job/job_states.h"

#include <gtest/gtest.h>

namespace dorvo {
namespace {

// What is expected of a state: of stop, pause and resume the state afterwards, "s" when the record
// is flushed and "+" when the run goes on; of no command whether it goes on; then what start(),
// resume() and pause() make of it.
struct Row {
    int32_t state;
    int32_t stopTo;
    const char* stop;
    int32_t pauseTo;
    const char* pause;
    int32_t resumeTo;
    const char* resume;
    bool carriesOn;
    bool restartable;
    ResumeAction resumeAction;
    PauseAction pauseAction;
};

using RA = ResumeAction;
using PA = PauseAction;

// clang-format off
constexpr Row rows[] = {
    {-1, -1, "s", -1, "s+", -1, "+",  false, false, RA::refuse,  PA::nothing},
    { 0,  0, "s",  0, "s+",  0, "+",  false, false, RA::refuse,  PA::nothing},
    { 1,  1, "s",  1, "s+",  1, "+",  false, true,  RA::refuse,  PA::park},
    { 2,  8, "s",  5, "s",   2, "+",  true,  false, RA::nothing, PA::request},
    { 3,  8, "s",  5, "s",   3, "+",  true,  false, RA::nothing, PA::request},
    { 4,  4, "s",  4, "s+",  4, "+",  true,  false, RA::nothing, PA::request},
    { 5,  5, "",   5, "s",   5, "+",  false, false, RA::refuse,  PA::keep},
    { 6,  9, "s",  6, "s",   3, "s+", false, false, RA::begin,   PA::keep},
    { 7,  7, "s",  7, "s+",  7, "+",  false, true,  RA::refuse,  PA::nothing},
    { 8,  8, "",   8, "s",   8, "+",  false, false, RA::refuse,  PA::nothing},
    { 9,  9, "",   9, "s+",  9, "+",  false, true,  RA::refuse,  PA::nothing},
    {10, 10, "s", 10, "s+", 10, "+",  false, true,  RA::refuse,  PA::nothing},
    {14, 14, "s", 14, "s+", 14, "+",  false, false, RA::refuse,  PA::nothing},
    {99, 99, "s", 99, "s+", 99, "+",  false, false, RA::refuse,  PA::nothing},
};
// clang-format on

TEST(JobStates, EveryStateMeetsEveryCommand) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.state);
        const auto expect = [&](JobCommand command, int32_t next, const std::string& marks) {
            const PollOutcome outcome = pollCommand(row.state, command);
            EXPECT_EQ(outcome.next, next);
            EXPECT_EQ((outcome.sync ? std::string("s") : "") + (outcome.carryOn ? "+" : ""), marks);
        };
        expect(JobCommand::stop, row.stopTo, row.stop);
        expect(JobCommand::pause, row.pauseTo, row.pause);
        expect(JobCommand::resume, row.resumeTo, row.resume);
        EXPECT_EQ(carriesOn(row.state), row.carriesOn);
        EXPECT_EQ(restartable(row.state), row.restartable);
        EXPECT_EQ(resumeAction(row.state), row.resumeAction);
        EXPECT_EQ(pauseAction(row.state), row.pauseAction);
    }
}

}  // namespace
}  // namespace dorvo
