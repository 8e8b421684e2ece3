#include "base/job_state.h"

#include <cstring>

namespace dorvo {
namespace {

struct Row {
    JobState state;
    const char* text;
};

constexpr Row states[] = {
    {JobState::none, "none"},
    {JobState::idle, "idle"},
    {JobState::starting, "starting"},
    {JobState::running, "running"},
    {JobState::completing, "completing"},
    {JobState::pausing, "pausing"},
    {JobState::paused, "paused"},
    {JobState::completed, "completed"},
    {JobState::canceling, "canceling"},
    {JobState::cancelled, "cancelled"},
    {JobState::error, "error"},
    {JobState::created, "created"},
    {JobState::updated, "updated"},
    {JobState::unloaded, "unloaded"},
    {JobState::deleted, "deleted"},
};

}  // namespace

const char* jobStateToString(int state) {
    for (const Row& row : states) {
        if (static_cast<int>(row.state) == state) {
            return row.text;
        }
    }
    return "none";
}

int jobStateFromString(const char* text) {
    if (text == nullptr || *text == '\0') {
        return 0;
    }
    for (const Row& row : states) {
        if (std::strcmp(row.text, text) == 0) {
            return static_cast<int>(row.state);
        }
    }
    return 0;
}

}  // namespace dorvo
