#include "data/excludedpaths.h"

#include <algorithm>

#include "text/agenterror.h"

namespace dorvo::agent {

void requireSound(const ExclusionList& exclusions) {
    if (exclusions.damaged()) {
        throw AgentError("The exclusion list '" + exclusions.path() +
                         "' is damaged: mend or delete the file");
    }
}

std::vector<std::string> excludedPaths(const std::string& list) {
    const ExclusionList exclusions;
    requireSound(exclusions);
    std::vector<std::string> paths;
    json_spirit::Value value;
    if (!exclusions.getList(list.c_str(), value) || value.type() != json_spirit::array_type) {
        return paths;
    }
    for (const json_spirit::Value& entry : value.get_array()) {
        if (entry.type() == json_spirit::str_type) {
            std::string path = entry.get_str();
            std::replace(path.begin(), path.end(), '/', '\\');
            paths.push_back(std::move(path));
        }
    }
    return paths;
}

}  // namespace dorvo::agent
