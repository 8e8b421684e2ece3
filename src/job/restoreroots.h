// Where the parts of a backup begin that a restore brings back: what the user has named, or, where
// he wants everything, what was backed up. The way down to there is his own choice, links included.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace dorvo {

class RestoreRoots {
public:
    // `sources` are the definition's, `list` is the path of the source list, which is read at the
    // first question where nothing was named.
    RestoreRoots(const std::vector<std::wstring>& sources, std::wstring list);

    // The root at or above the path, the deepest where there are several; empty for none.
    std::wstring above(std::wstring_view path);

private:
    std::wstring find(std::wstring_view path) const;
    void readList();

    std::wstring list_;  // empty when it was read
    std::set<std::wstring, std::less<>> roots_;
};

}  // namespace dorvo
