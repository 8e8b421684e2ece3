// Paths as the user gives them, made into what a job definition holds.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

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

}  // namespace dorvo::agent
