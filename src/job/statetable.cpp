#include "job/statetable.h"

#include <algorithm>
#include <iterator>

namespace dorvo {
namespace {

constexpr bool synced = true;
constexpr bool unsynced = false;
constexpr bool goesOn = true;
constexpr bool leaves = false;
constexpr JobState same = JobState::none;  // the state does not change

struct Row {
    JobState state;
    Answer init, start, stop, pause, resume;  // asked of the job
};

struct PollRow {
    JobState state;
    PollOutcome stop, pause, resume;  // seen by its run
};

// clang-format off
using S = JobState;
using A = Answer;

constexpr Row rows[] = {
    // state        init         start        stop        pause       resume
    {S::idle,       A::nothing,  A::begin,    A::nothing, A::park,    A::refuse},
    {S::starting,   A::takeUp,   A::takeBack, A::tell,    A::tell,    A::takeBack},
    {S::running,    A::takeUp,   A::takeBack, A::tell,    A::tell,    A::takeBack},
    {S::completing, A::takeUp,   A::takeBack, A::tell,    A::tell,    A::takeBack},
    {S::pausing,    A::takeUp,   A::refuse,   A::tell,    A::keep,    A::refuse},
    {S::paused,     A::nothing,  A::goOn,     A::drop,    A::keep,    A::goOn},
    {S::completed,  A::nothing,  A::begin,    A::nothing, A::nothing, A::refuse},
    {S::canceling,  A::takeUp,   A::refuse,   A::nothing, A::nothing, A::refuse},
    {S::cancelled,  A::nothing,  A::begin,    A::nothing, A::nothing, A::refuse},
    {S::error,      A::nothing,  A::begin,    A::nothing, A::nothing, A::refuse},
};
// Every other state, known or not.
constexpr Row otherRow =
    {same,          A::distrust, A::refuse,   A::nothing, A::nothing, A::refuse};

constexpr PollRow pollRows[] = {
    // state        stop                            pause                         resume
    {S::starting,   {S::canceling, synced, leaves}, {S::pausing, synced, leaves}, {same, unsynced, goesOn}},
    {S::running,    {S::canceling, synced, leaves}, {S::pausing, synced, leaves}, {same, unsynced, goesOn}},
    {S::completing, {same, synced, leaves},         {same, synced, goesOn},       {same, unsynced, goesOn}},
    {S::pausing,    {same, unsynced, leaves},       {same, synced, leaves},       {same, unsynced, goesOn}},
    {S::paused,     {S::cancelled, synced, leaves}, {same, synced, leaves},       {S::running, synced, goesOn}},
    {S::completed,  {same, synced, leaves},         {same, synced, goesOn},       {same, unsynced, goesOn}},
    {S::canceling,  {same, unsynced, leaves},       {same, synced, leaves},       {same, unsynced, goesOn}},
    {S::cancelled,  {same, unsynced, leaves},       {same, synced, goesOn},       {same, unsynced, goesOn}},
};
constexpr PollRow otherPollRow =
    {same,          {same, synced, leaves},         {same, synced, goesOn},       {same, unsynced, goesOn}};
// clang-format on

template <class Rows, class Other>
const Other& rowOf(const Rows& all, const Other& other, JobState state) {
    const auto found = std::find_if(std::begin(all), std::end(all),
                                    [&](const Other& row) { return row.state == state; });
    return found == std::end(all) ? other : *found;
}

}  // namespace

Answer answer(JobRequest request, JobState state) {
    const Row& row = rowOf(rows, otherRow, state);
    switch (request) {
        case JobRequest::init: return row.init;
        case JobRequest::start: return row.start;
        case JobRequest::stop: return row.stop;
        case JobRequest::pause: return row.pause;
        case JobRequest::resume: break;
    }
    return row.resume;
}

JobState leftAs(JobState state, JobState pending) {
    // Too late for one that completes: its storage may have all of it, and says so at its end.
    if (state == JobState::canceling ||
        (pending == JobState::canceling && state != JobState::completing)) {
        return JobState::cancelled;
    }
    return pending == JobState::error ? JobState::error : JobState::paused;
}

PollOutcome pollCommand(JobState state, JobCommand command) {
    const PollRow& row = rowOf(pollRows, otherPollRow, state);
    PollOutcome outcome = command == JobCommand::stop    ? row.stop
                          : command == JobCommand::pause ? row.pause
                                                         : row.resume;
    if (outcome.next == same) {
        outcome.next = state;
    }
    return outcome;
}

}  // namespace dorvo
