#include "endpoints/session_clock.h"

#include <algorithm>

namespace dorvo {

using std::chrono::duration_cast;
using std::chrono::seconds;

SessionClock::SessionClock(int64_t lastUse, int64_t lifetime)
    : start_(start(
          lastUse, lifetime,
          duration_cast<seconds>(std::chrono::system_clock::now().time_since_epoch()).count())) {}

int64_t SessionClock::now() const {
    return start_ + duration_cast<seconds>(std::chrono::steady_clock::now() - began_).count();
}

int64_t SessionClock::start(int64_t lastUse, int64_t lifetime, int64_t wall) {
    return lastUse == 0 ? wall : std::clamp(wall, lastUse, lastUse + lifetime / 4);
}

}  // namespace dorvo
