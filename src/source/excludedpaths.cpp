#include "source/excludedpaths.h"

#include "base/text.h"

namespace dorvo {

ExcludedPaths::ExcludedPaths(const ExclusionList& exclusions, const std::string& jobId) {
    for (const char* list : {everyJobList, jobId.c_str()}) {
        json_spirit::Value paths;
        if (!exclusions.getList(list, paths)) {
            continue;
        }
        for (const json_spirit::Value& path : paths.get_array()) {
            if (path.type() == json_spirit::str_type) {
                add(toWide(path.get_str()));
            }
        }
    }
}

void ExcludedPaths::add(const ComparablePath& path) {
    if (!path.text().empty()) {
        paths_.insert(path.text());
    }
}

bool ExcludedPaths::contains(const ComparablePath& path) const {
    if (paths_.empty()) {
        return false;
    }
    std::wstring_view above = path.text();
    while (!above.empty()) {
        if (paths_.contains(above)) {
            return true;
        }
        const size_t end = above.rfind(L'\\');
        above = above.substr(0, end == std::wstring_view::npos ? 0 : end);
    }
    return false;
}

}  // namespace dorvo
