// Where the module keeps its files, and what the text of a path says.
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

// True of "C:", "C:\", "\\server\share" and "\\server\share\".
constexpr bool isVolumeRoot(std::wstring_view path) {
    if (path.ends_with(L'\\')) {
        path.remove_suffix(1);
    }
    if (!path.starts_with(L"\\\\")) {
        return path.size() <= 2;
    }
    const size_t share = path.find(L'\\', 2);
    return share == std::wstring_view::npos ||
           path.find(L'\\', share + 1) == std::wstring_view::npos;
}

// "C:" or "\\server\share" of a path that begins with it; the whole of any other.
constexpr std::wstring_view volumeRootOf(std::wstring_view path) {
    size_t end = path.find(L'\\');
    if (path.starts_with(L"\\\\")) {
        end = path.find(L'\\', 2);
        end = end == std::wstring_view::npos ? end : path.find(L'\\', end + 1);
    }
    return path.substr(0, end);
}

}  // namespace dorvo
