// The agent's own data directory among what is backed up and restored.
//
// A backup holds of it what is written once and serves on another day: settings, exclusions and
// definitions of jobs. Left out are the records, lists, packages and logs that change while a run
// reads them, and sessions and keys, which open on this machine only and are no use without it.
// Nothing is restored into it: a restored store would replace the machine's own.
//
// Found under every name: a folder called like it is compared by its identity on the disk.
// Not for several threads at a time.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "source/comparablepath.h"

namespace dorvo {

class OwnData {
public:
    OwnData();
    // A directory of the tests' own.
    explicit OwnData(std::wstring directory);

    // What of the path lies in the directory, in upper case: L"JOB\\1\\INFO", empty for the
    // directory itself; nothing for a path elsewhere.
    std::optional<std::wstring> partOf(const ComparablePath& path);

    // Whether a backup leaves out the path and all below it.
    bool leavesOut(const ComparablePath& path);

    const std::wstring& directory() const { return directory_; }

private:
    bool isDirectory(const std::wstring& path);

    std::wstring directory_;
    std::wstring tail_;                           // its last two names, with their separators
    std::set<std::wstring, std::less<>> names_;   // paths that lead to it, in comparable form
    std::set<std::wstring, std::less<>> others_;  // that are called so and lead elsewhere
};

}  // namespace dorvo
