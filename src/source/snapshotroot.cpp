#include "source/snapshotroot.h"

#include "base/last_error.h"
#include "base/log.h"
#include "base/text.h"

namespace dorvo {

bool isSnapshotThere(const JobVolume& volume) {
    const LastErrorGuard keep;
    // A root that may not be looked at is one all the same.
    if (volume.shadowPath.empty() ||
        GetFileAttributesW(volume.shadowPath.c_str()) != INVALID_FILE_ATTRIBUTES ||
        GetLastError() == ERROR_ACCESS_DENIED) {
        return true;
    }
    return logFailed("The snapshot of volume {%s} is gone, error-code = %d, %m.\n",
                     toUtf8(volume.path), GetLastError());
}

}  // namespace dorvo
