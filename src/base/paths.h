// Where the module keeps its files.
//
// Every function keeps Windows conventions: no trailing backslash, UTF-16.
#pragma once

#include <string>
#include <string_view>

namespace dorvo {

// <common application data>\trevold\Dorvo. False, with `path` empty, when the folder query fails.
bool dataDirectory(std::wstring& path);

// <data directory>\job. False, with `path` empty, when the folder query fails.
bool jobRoot(std::wstring& path);

// <data directory>\job\<id>. False, with `path` empty, when the folder query fails or the id is no
// name for a folder (see isJobId).
bool jobDirectory(std::string_view id, std::wstring& path);

// True for a text that names exactly one folder below the job root: not empty, no separators, no
// colon or wildcard, neither "." nor "..", no trailing dot or space, no device name.
bool isJobId(std::string_view id);

// Makes the folder and those above it; the data directory so that only the user of this process,
// administrators and the system may open it. True when it exists afterwards.
bool createDirectories(const std::wstring& path);

// The folder of the host process's executable, with a trailing backslash; empty when it has none.
std::wstring executableDirectory();

// The \\?\ form of an absolute path, so that calls take more than 260 characters. Paths that have
// such a prefix already, and relative ones, come back unchanged.
std::wstring longPath(std::wstring_view path);

}  // namespace dorvo
