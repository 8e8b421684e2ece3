// Tries again, for about a second, what fails because another program has a file open: a scanner,
// an indexer, somebody's editor.
//
//     SharingRetry retry;
//     do { file = open(); } while (!file && retry.again());
#pragma once

#include <windows.h>

#include "base/last_error.h"

namespace dorvo {

// Whether the error says that another program has the file, or a part of it, for now.
constexpr bool isHeld(DWORD error) {
    return error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION;
}

class SharingRetry {
public:
    // How the time between two tries goes by.
    using Pause = void (*)(DWORD milliseconds);

    // True, after a pause, when the thread's last error is that of a file in use and tries are
    // left; `also` is one more such error: replacing an open file gives ERROR_ACCESS_DENIED. The
    // last error stays.
    bool again(DWORD also = ERROR_SHARING_VIOLATION) {
        const LastErrorGuard keep;
        if ((!isHeld(keep.error()) && keep.error() != also) || tries_ == mostTries) {
            return false;
        }
        ++tries_;
        pause(pauseMs);
        return true;
    }

    static constexpr int mostTries = 10;
    static constexpr DWORD pauseMs = 100;
    // For tests, which have something to do meanwhile.
    static inline Pause pause = [](DWORD milliseconds) { Sleep(milliseconds); };

private:
    int tries_ = 0;
};

}  // namespace dorvo
