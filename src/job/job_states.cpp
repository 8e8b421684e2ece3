#include "job/job_states.h"

#include <algorithm>
#include <iterator>

namespace dorvo {
namespace {

using enum JobState;

constexpr bool synced = true;
constexpr bool unsynced = false;
constexpr bool goOn = true;
constexpr bool leave = false;
constexpr int32_t same = -1;  // the state does not change

constexpr int32_t to(JobState state) {
    return static_cast<int32_t>(state);
}

struct PollRow {
    int32_t state;
    PollOutcome stop;
    PollOutcome pause;
    PollOutcome resume;
};

// clang-format off
constexpr PollRow pollRows[] = {
    // state          stop                               pause                            resume
    {to(starting),   {to(canceling), synced,   leave}, {to(pausing), synced, leave}, {same,        unsynced, goOn}},
    {to(running),    {to(canceling), synced,   leave}, {to(pausing), synced, leave}, {same,        unsynced, goOn}},
    {to(completing), {same,          synced,   leave}, {same,        synced, goOn},  {same,        unsynced, goOn}},
    {to(pausing),    {same,          unsynced, leave}, {same,        synced, leave}, {same,        unsynced, goOn}},
    {to(paused),     {to(cancelled), synced,   leave}, {same,        synced, leave}, {to(running), synced,   goOn}},
    {to(completed),  {same,          synced,   leave}, {same,        synced, goOn},  {same,        unsynced, goOn}},
    {to(canceling),  {same,          unsynced, leave}, {same,        synced, leave}, {same,        unsynced, goOn}},
    {to(cancelled),  {same,          unsynced, leave}, {same,        synced, goOn},  {same,        unsynced, goOn}},
};
// Every other state, known or not.
constexpr PollRow otherState =
    {same,           {same,          synced,   leave}, {same,        synced, goOn},  {same,        unsynced, goOn}};
// clang-format on

}  // namespace

PollOutcome pollCommand(int32_t state, JobCommand command) {
    const auto* row = std::find_if(std::begin(pollRows), std::end(pollRows),
                                   [&](const PollRow& r) { return r.state == state; });
    const PollRow& found = row == std::end(pollRows) ? otherState : *row;
    PollOutcome outcome = command == JobCommand::stop    ? found.stop
                          : command == JobCommand::pause ? found.pause
                                                         : found.resume;
    if (outcome.next == same) {
        outcome.next = state;
    }
    return outcome;
}

bool carriesOn(int32_t state) {
    return state == to(starting) || state == to(running) || state == to(completing);
}

bool restartable(int32_t state) {
    return state == to(idle) || state == to(completed) || state == to(cancelled) ||
           state == to(error);
}

ResumeAction resumeAction(int32_t state) {
    if (carriesOn(state)) {
        return ResumeAction::nothing;
    }
    return state == to(paused) ? ResumeAction::begin : ResumeAction::refuse;
}

PauseAction pauseAction(int32_t state) {
    if (carriesOn(state)) {
        return PauseAction::request;
    }
    if (state == to(idle)) {
        return PauseAction::park;
    }
    return state == to(pausing) || state == to(paused) ? PauseAction::keep : PauseAction::nothing;
}

}  // namespace dorvo
