// Paths inside a backup, as the user gives them.
#pragma once

#include <cstdint>
#include <string>

#include "storage/restorecatalog.h"

namespace dorvo::agent {

// The path as a backup holds it: absolute, with backslashes and an upper-case drive letter, none at
// the end ("C:" is a drive's root). A relative path starts at the current folder, since backups of
// this machine hold what was there. Empty for what names no path. Looks at no disk.
std::wstring backupPath(const std::string& given);

struct HeldPath {
    std::wstring path;
    bool folder = true;
    uint64_t missing = 0;  // items of the whole backup that the catalog has lost
};

// What the backup holds at the path that the user gives, tried as it was given and then, since
// backups tell cases apart and people don't, as this machine's disk spells it. Throws AgentError
// (wrong usage) for what is no path. An empty path: the backup holds neither. False with the last
// error when the catalog cannot tell.
bool findHeldPath(RestoreCatalog& catalog, const std::string& given, HeldPath& held);

}  // namespace dorvo::agent
