// Answers whether a path is on or below one of a set of excluded paths.
//
// Compared without regard to case and by whole components: "C:\data" covers "c:\Data\a.txt", not
// "C:\database". Slashes of both kinds and \\?\ forms are the same. Immutable once filled; asking
// costs one look-up a component.
#pragma once

#include <set>
#include <string>

#include "source/comparablepath.h"
#include "source/exclusionlist.h"

namespace dorvo {

class ExcludedPaths {
public:
    ExcludedPaths() = default;
    // The paths that count for a job.
    ExcludedPaths(const ExclusionList& exclusions, const std::string& jobId);

    void add(const ComparablePath& path);
    bool contains(const ComparablePath& path) const;

private:
    std::set<std::wstring, std::less<>> paths_;  // in comparable form
};

}  // namespace dorvo
