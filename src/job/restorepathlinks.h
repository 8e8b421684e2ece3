// Whether the folders that lie on the way to a target are real: a link among them would lead what
// is restored elsewhere.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "job/restorepath.h"

namespace dorvo {

// checkRestorePath() with names compared as Windows does, then findRestoreLink().
RestorePathFault judgeRestorePath(RestorePathRequest request);

// Looks at each folder above the target that exists, from below the root on (empty: from below the
// drive or the share). `link` for one that stands for another place, a mounted volume included;
// `unknownParent` for one that cannot be looked at, with the last error. The target itself is not
// looked at: replacing it replaces a link, not what it leads to.
RestorePathFault findRestoreLink(std::wstring_view target, std::wstring_view root);

// True for the reparse tags that stand for another place. Files that a cloud provider keeps have
// tags too, and are at home where they are. 0, which no real one has, is taken for a link.
bool leadsElsewhere(uint32_t tag);

}  // namespace dorvo
