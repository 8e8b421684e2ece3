// What the exclusion list of the data directory holds.
#pragma once

#include <string>
#include <vector>

#include "source/exclusionlist.h"

namespace dorvo::agent {

// Throws AgentError for a damaged file, which looks as if it excluded nothing.
void requireSound(const ExclusionList& exclusions);

// The paths of one list, with backslashes; none where there is no such list. Throws as above.
std::vector<std::string> excludedPaths(const std::string& list);

}  // namespace dorvo::agent
