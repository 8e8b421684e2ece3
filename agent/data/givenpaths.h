// Paths as users give them: on this machine's disk, and in a backup.
//
// On the disk a path is absolute, as the system makes it out; in a backup it is text, for a backup
// may hold names that the system would change. What is no path is wrong usage: an AgentError, or an
// empty path where that is said.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "storage/restorecatalog.h"

namespace dorvo::agent {

// The absolute path, with backslashes, without "." and "..", an upper-case drive letter and no
// trailing backslash except at a root ("C:\"). Empty for a text that names no file system path: a
// device, a stream, a wildcard. Looks at no disk except for the current folder.
std::wstring absolutePath(const std::wstring& path);

// absolutePath with each component as the disk spells it. A component that is not there stays as it
// was given. Throws AgentError (wrong usage) for a path that absolutePath refuses and, when `must
// exist`, for one that is not there.
std::wstring onDiskPath(const std::wstring& path, bool mustExist);

// Whether the path lies below the folder, without regard to case. Pure.
bool isBelow(std::wstring_view path, std::wstring_view folder);

// Without repetitions and without paths that lie below another one; in the order given. `reached`
// tells of a path below a folder whether a walk of the folder comes to it; null: it does.
std::vector<std::wstring> withoutNested(
    const std::vector<std::wstring>& paths,
    const std::function<bool(const std::wstring& folder, const std::wstring& path)>& reached = {});

// A name for a job that has none: the paths, "C:\a, D:\b", or the first and a count where that
// would be long. Pure.
std::wstring nameOfSources(const std::vector<std::wstring>& paths);

// Compared as the file system does, without regard to case.
std::wstring upperCase(std::wstring_view text);
bool samePath(std::wstring_view a, std::wstring_view b);

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
