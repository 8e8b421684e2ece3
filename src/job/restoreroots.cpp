#include "job/restoreroots.h"

#include <windows.h>

#include "record/jobactsrcreader.h"
#include "record/sourcerecord.h"

namespace dorvo {

RestoreRoots::RestoreRoots(const std::vector<std::wstring>& sources, std::wstring list) {
    for (const std::wstring& source : sources) {
        roots_.insert(source.substr(0, source.find_last_not_of(L'\\') + 1));
    }
    if (roots_.erase(std::wstring()) != 0 || roots_.empty()) {
        roots_.clear();
        list_ = std::move(list);
    }
}

std::wstring RestoreRoots::above(std::wstring_view path) {
    if (!list_.empty()) {
        readList();
        list_.clear();
    }
    return find(path);
}

std::wstring RestoreRoots::find(std::wstring_view path) const {
    for (size_t end = path.size(); end != 0 && end != std::wstring_view::npos;
         end = path.rfind(L'\\', end - 1)) {
        if (roots_.contains(path.substr(0, end))) {
            return std::wstring(path.substr(0, end));
        }
    }
    return {};
}

// A folder stands before what lies in it, so whatever lies in none so far begins a part.
void RestoreRoots::readList() {
    JobActivitySourceReader reader;
    if (!reader.open(list_, 0)) {
        return;
    }
    while (const uint32_t tag = reader.next()) {
        std::wstring path;
        WIN32_FILE_ATTRIBUTE_DATA data{};
        uint64_t number = 0;
        if ((tag == tagFile || tag == tagDirectory) && reader.entry(path, data, number) &&
            find(path).empty()) {
            roots_.insert(path);
        }
    }
}

}  // namespace dorvo
