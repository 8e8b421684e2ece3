// What the exclusion list of the data directory holds.
#pragma once

#include <string>
#include <vector>

namespace dorvo::agent {

// The paths of one list (see ExclusionList), with backslashes; none where there is no such list.
std::vector<std::string> excludedPaths(const std::string& list);

}  // namespace dorvo::agent
