#include "job/source/excludedpaths.h"

#include <algorithm>

#include "base/text.h"

namespace dorvo {

std::wstring ExcludedPaths::comparable(std::wstring_view path) {
    std::wstring result(path);
    std::replace(result.begin(), result.end(), L'/', L'\\');
    if (result.starts_with(L"\\\\?\\UNC\\")) {
        result.erase(2, 6);
    } else if (result.starts_with(L"\\\\?\\")) {
        result.erase(0, 4);
    }
    while (!result.empty() && result.back() == L'\\') {
        result.pop_back();
    }
    foldCase(result);
    return result;
}

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

void ExcludedPaths::add(std::wstring_view path) {
    std::wstring entry = comparable(path);
    if (!entry.empty()) {
        paths_.insert(std::move(entry));
    }
}

bool ExcludedPaths::contains(std::wstring_view path) const {
    if (paths_.empty()) {
        return false;
    }
    const std::wstring whole = comparable(path);
    std::wstring_view above = whole;
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
