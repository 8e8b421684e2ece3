// The time that sessions are aged by, in seconds: nobody can set it.
//
// A clock of the wall that was ahead for an hour, or set back, must not end everybody's session,
// nor make one last. This one goes on by itself while the service runs. When the service starts it
// goes on from the last time on record, by as much as the wall says that it was off, but by no more
// than a quarter of a session's lifetime. Any thread.
#pragma once

#include <chrono>
#include <cstdint>

namespace dorvo {

class SessionClock {
public:
    // From the last use on record, 0 when there is none.
    SessionClock(int64_t lastUse, int64_t lifetime);

    [[nodiscard]] int64_t now() const;

    // Where it begins.
    static int64_t start(int64_t lastUse, int64_t lifetime, int64_t wall);

private:
    int64_t start_;
    std::chrono::steady_clock::time_point began_ = std::chrono::steady_clock::now();
};

}  // namespace dorvo
