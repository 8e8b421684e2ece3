// What a backup holds: lists the items of one backup run, page by page.
//
// Items come with their attributes as they were backed up, a directory before what lies in it. One
// object lists one run; one thread. Blocks; the job's stop signal breaks it off with 1223.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace dorvo {

class RestoreCatalog {
public:
    struct Item {
        std::wstring path;  // as it was backed up, without a trailing backslash
        WIN32_FILE_ATTRIBUTE_DATA data{};

        bool directory() const { return (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
    };

    struct Page {
        std::vector<Item> items;
        std::string next;      // where the next page begins; empty after the last one
        uint64_t missing = 0;  // of a last page: items of the whole run that the catalog has lost
    };

    // Entries a page at most.
    static constexpr unsigned pageLimit = 1000;

    virtual ~RestoreCatalog() = default;

    // One page of the item `path` and all that lies below it; empty stands for the whole run.
    // `after` is the former page's `next`, empty for the first. A path that the run does not hold
    // gives an empty page. False is logged and leaves the last error: a socket error, a marked HTTP
    // status (404: there is no such run), 13 for an answer that is none.
    virtual bool list(const std::wstring& path, const std::string& after, Page& page) = 0;
};

}  // namespace dorvo
