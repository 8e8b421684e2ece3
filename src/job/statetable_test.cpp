#include "job/statetable.h"

#include <gtest/gtest.h>

#include <string>

namespace dorvo {
namespace {

JobState of(int state) {
    return static_cast<JobState>(state);
}

// What is expected of a state: what init(), start(), stop(), pause() and resume() make of it; what
// its run makes of stop, pause and resume: the state afterwards, "s" when the record is flushed and
// "+" when the run goes on; the predicates that hold, as letters: (u)nder way, (c)arries on,
// (f)inal, (r)estartable, unfinish(e)d.
struct Row {
    int state;
    const char* asked;
    int stopTo;
    const char* stop;
    int pauseTo;
    const char* pause;
    int resumeTo;
    const char* resume;
    const char* holds;
};

// clang-format off
constexpr Row rows[] = {
    {-1, "distrust refuse nothing nothing refuse", -1, "s", -1, "s+", -1, "+", ""},
    { 0, "distrust refuse nothing nothing refuse",  0, "s",  0, "s+",  0, "+", ""},
    { 1, "nothing begin nothing park refuse",       1, "s",  1, "s+",  1, "+", "r"},
    { 2, "takeUp takeBack tell tell takeBack",      8, "s",  5, "s",   2, "+", "uce"},
    { 3, "takeUp takeBack tell tell takeBack",      8, "s",  5, "s",   3, "+", "uce"},
    { 4, "takeUp takeBack tell tell takeBack",      4, "s",  4, "s+",  4, "+", "uce"},
    { 5, "takeUp refuse tell keep refuse",          5, "",   5, "s",   5, "+", "ue"},
    { 6, "nothing goOn drop keep goOn",             9, "s",  6, "s",   3, "s+", "e"},
    { 7, "nothing begin nothing nothing refuse",    7, "s",  7, "s+",  7, "+", "fr"},
    { 8, "takeUp refuse nothing nothing refuse",    8, "",   8, "s",   8, "+", "u"},
    { 9, "nothing begin nothing nothing refuse",    9, "",   9, "s+",  9, "+", "fr"},
    {10, "nothing begin nothing nothing refuse",   10, "s", 10, "s+", 10, "+", "fr"},
    {14, "distrust refuse nothing nothing refuse", 14, "s", 14, "s+", 14, "+", ""},
    {99, "distrust refuse nothing nothing refuse", 99, "s", 99, "s+", 99, "+", ""},
};
// clang-format on

std::string text(Answer answer) {
    constexpr const char* texts[] = {"nothing", "refuse", "begin", "goOn",   "takeBack", "tell",
                                     "park",    "keep",   "drop",  "takeUp", "distrust"};
    static_assert(std::size(texts) == static_cast<size_t>(Answer::distrust) + 1);
    return texts[static_cast<size_t>(answer)];
}

std::string answers(JobState state) {
    std::string all;
    for (const JobRequest request : {JobRequest::init, JobRequest::start, JobRequest::stop,
                                     JobRequest::pause, JobRequest::resume}) {
        all += (all.empty() ? "" : " ") + text(answer(request, state));
    }
    return all;
}

TEST(StateTable, EveryStateMeetsEveryCommand) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.state);
        const JobState state = of(row.state);
        EXPECT_EQ(answers(state), row.asked);
        const auto expect = [&](JobCommand command, int next, const std::string& marks) {
            const PollOutcome outcome = pollCommand(state, command);
            EXPECT_EQ(outcome.next, of(next));
            EXPECT_EQ((outcome.sync ? std::string("s") : "") + (outcome.carryOn ? "+" : ""), marks);
        };
        expect(JobCommand::stop, row.stopTo, row.stop);
        expect(JobCommand::pause, row.pauseTo, row.pause);
        expect(JobCommand::resume, row.resumeTo, row.resume);
        EXPECT_EQ(std::string(isUnderWay(state) ? "u" : "") + (carriesOn(state) ? "c" : "") +
                      (isFinal(state) ? "f" : "") + (isRestartable(state) ? "r" : "") +
                      (isUnfinished(state) ? "e" : ""),
                  row.holds);
    }
}

TEST(StateTable, ARunLeftByItsProcessIsWhatItWouldHaveBecome) {
    struct Left {
        JobState state, pending, becomes;
    };
    using S = JobState;
    for (const Left& row : {Left{S::running, S::none, S::paused},
                            {S::running, S::pausing, S::paused},
                            {S::running, S::canceling, S::cancelled},
                            {S::completing, S::error, S::error},
                            {S::completing, S::canceling, S::paused},
                            {S::pausing, S::none, S::paused},
                            {S::pausing, S::canceling, S::cancelled},
                            {S::canceling, S::none, S::cancelled},
                            {S::canceling, S::error, S::cancelled}}) {
        SCOPED_TRACE(jobStateToString(row.state) + std::string(" ") +
                     jobStateToString(row.pending));
        EXPECT_EQ(leftAs(row.state, row.pending), row.becomes);
    }
}

}  // namespace
}  // namespace dorvo
