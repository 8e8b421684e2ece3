// A set of paths that are left out of a backup with everything below them. Case does not count;
// slashes of either kind and a trailing one do not matter.
#pragma once

#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace dorvo {

class PathExclusions {
public:
    explicit PathExclusions(const std::vector<std::wstring>& paths);

    bool empty() const { return paths_.empty(); }
    // True when the path is one of them or lies below one.
    bool contains(std::wstring_view path) const;

private:
    std::unordered_set<std::wstring> paths_;  // in their common form
};

}  // namespace dorvo
