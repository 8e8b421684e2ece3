// Folders on a backup's way that stand for another place: links, and volumes mounted in a folder.
#pragma once

#include <windows.h>

#include <string>

#include "base/api.h"

namespace dorvo {

// What a user is told of a folder with that reparse tag, which a walk has listed and not entered.
std::string notEnteredText(const std::wstring& path, DWORD tag);

// The first folder of the path that is a link, the path itself included, from behind the mount
// point on, which the path begins with. Empty when there is none.
DORVO_JOB_API std::wstring firstLinkIn(const std::wstring& path, const std::wstring& mountPoint);

}  // namespace dorvo
