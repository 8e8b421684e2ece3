// What the process ends with.
#pragma once

namespace dorvo::agent {

enum ExitCode : int {
    exitDone = 0,
    exitFailed = 1,
    exitUsage = 2,
    exitSomeFailed = 3,  // the run is done, but items of it failed
    exitStopped = 4,     // the run was paused or cancelled
};

}  // namespace dorvo::agent
