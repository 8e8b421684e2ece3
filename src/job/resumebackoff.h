// How long a run that has parked itself waits before it goes on: 30 seconds, and longer from one
// time to the next while it fails without having come any further.
//
// Values in, values out. What a process forgets when it ends begins again with 30 seconds.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

namespace dorvo {

// How far a run has come. Any difference counts as progress.
struct RunProgress {
    uint64_t listed = 0;    // bytes of its list's items
    uint64_t position = 0;  // in the list
    uint32_t blocks = 0;    // of the current item, accepted
    uint64_t offset = 0;    // in the current item

    bool operator==(const RunProgress&) const = default;
};

class ResumeBackoff {
public:
    static constexpr uint64_t firstMs = 30'000;
    // Whoever gets his network back should not have to wait for long.
    static constexpr uint64_t longestMs = 300'000;

    uint64_t afterFailureAt(const RunProgress& progress) {
        waitMs_ = last_ == progress ? std::min(2 * waitMs_, longestMs) : firstMs;
        last_ = progress;
        return waitMs_;
    }
    // Another run begins.
    void reset() { last_.reset(); }

private:
    std::optional<RunProgress> last_;  // at the last failure
    uint64_t waitMs_ = firstMs;
};

}  // namespace dorvo
