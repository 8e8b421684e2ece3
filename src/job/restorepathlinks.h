// Whether the folders that lie on the way to a target are real: a link among them would lead what
// is restored elsewhere.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "job/restorepath.h"

namespace dorvo {

// What the disk says of a folder.
struct RestoreFolder {
    uint32_t error = 0;  // why it could not be looked at, else 0
    uint32_t attributes = 0;
    uint32_t reparseTag = 0;  // 0 when it has none or the system tells none
    bool mountedVolume = false;
};
RestoreFolder lookAtFolder(const std::wstring& path);

// checkRestorePath() with names compared as Windows does, then findRestoreLink() below the root or
// the user's own way.
RestorePathFault judgeRestorePath(RestorePathRequest request);

// Looks at each folder above the target that exists, from below the root on (empty: from below the
// drive or the share). `link` for one that stands for another place: not for a mounted volume,
// which an administrator has put there. `unknownParent` for one that cannot be looked at. The
// target itself is not looked at: replacing it replaces a link, not what it leads to. The function
// is for tests to replace.
RestorePathFault findRestoreLink(
    std::wstring_view target, std::wstring_view root,
    const std::function<RestoreFolder(const std::wstring&)>& look = lookAtFolder);

}  // namespace dorvo
