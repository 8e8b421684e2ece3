#include "source/exclusionlist.h"

#include <algorithm>
#include <mutex>

#include "base/log.h"
#include "base/text.h"
#include "settings/storefile.h"
#include "source/comparablepath.h"

namespace dorvo {
namespace {

json_spirit::Array::iterator findPath(json_spirit::Array& paths, const std::string& path) {
    const ComparablePath wanted(toWide(path));
    return std::find_if(paths.begin(), paths.end(), [&](const json_spirit::Value& entry) {
        return entry.type() == json_spirit::str_type &&
               ComparablePath(toWide(entry.get_str())).text() == wanted.text();
    });
}

// Paths in files have forward slashes, device paths stay as they are.
std::string withForwardSlashes(std::string path) {
    if (!path.starts_with("\\\\?\\") && !path.starts_with("\\\\.\\")) {
        std::replace(path.begin(), path.end(), '\\', '/');
    }
    return path;
}

}  // namespace

CriticalSection ExclusionList::s_locker;

ExclusionList::ExclusionList() {
    const FunctionTrace trace("ExclusionList::ExclusionList", "exclusionlist.cpp");
    const std::lock_guard guard(s_locker);
    const std::wstring path = storePath(L"\\exclusions");
    damaged_ = !load(toUtf8(path).c_str()) && fileExists(path);
    if (damaged_) {
        log(LogLevel::error, "Failed to load the exclusion list {%s}; nothing is excluded.\n",
            path_);
    }
}

ExclusionList::ExclusionList(const ExclusionList& other)
    : JSONObjectStorage(other.content()), damaged_(other.damaged_) {}

ExclusionList& ExclusionList::operator=(const ExclusionList& other) {
    if (this != &other) {
        const std::lock_guard guard(s_locker);
        JSONObjectStorage::operator=(other);
        damaged_ = other.damaged_;
        changed_ = false;  // what `other` has not saved, it saves itself
    }
    return *this;
}

ExclusionList::~ExclusionList() {
    const std::lock_guard guard(s_locker);
    if (changed_) {
        saveLocked();
    }
}

JSONObjectStorage ExclusionList::content() const {
    const std::lock_guard guard(s_locker);
    return *this;
}

bool ExclusionList::addPath(const char* list, const char* path) {
    if (isEmpty(list) || isEmpty(path)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    const std::lock_guard guard(s_locker);
    if (damaged_) {
        SetLastError(ERROR_FILE_CORRUPT);
        return false;
    }
    const auto entry = values_.try_emplace(list, json_spirit::Array()).first;
    if (entry->second.type() != json_spirit::array_type) {
        SetLastError(ERROR_INVALID_DATA);
        return false;
    }
    json_spirit::Array& paths = entry->second.get_array();
    if (findPath(paths, path) == paths.end()) {
        paths.push_back(withForwardSlashes(path));
        changed_ = true;
    }
    return true;
}

bool ExclusionList::removePath(const char* list, const char* path) {
    if (isEmpty(list) || isEmpty(path)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    const std::lock_guard guard(s_locker);
    const auto entry = values_.find(list);
    if (entry == values_.end() || entry->second.type() != json_spirit::array_type) {
        return false;
    }
    json_spirit::Array& paths = entry->second.get_array();
    const auto found = findPath(paths, path);
    if (found == paths.end()) {
        return false;
    }
    paths.erase(found);
    if (paths.empty()) {
        values_.erase(entry);
    }
    changed_ = true;
    return true;
}

bool ExclusionList::getList(const char* list, json_spirit::Value& paths) const {
    if (isEmpty(list)) {
        return false;
    }
    const std::lock_guard guard(s_locker);
    const auto entry = values_.find(list);
    if (entry == values_.end() || entry->second.type() != json_spirit::array_type) {
        return false;
    }
    paths = entry->second;
    return true;
}

bool ExclusionList::save() {
    const FunctionTrace trace("ExclusionList::save", "exclusionlist.cpp");
    const std::lock_guard guard(s_locker);
    if (damaged_) {
        SetLastError(ERROR_FILE_CORRUPT);
        return false;
    }
    return saveLocked();
}

bool ExclusionList::saveLocked() {
    if (!JSONObjectStorage::save()) {
        return logFailed("Failed to save the exclusion list {%s}, %m.\n", path_);
    }
    changed_ = false;
    return true;
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
