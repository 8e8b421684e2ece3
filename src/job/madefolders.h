// Which folders of its list a restore has made itself, where it must leave those alone that were
// there: <job directory>\act\made, the items' numbers with 32 bits each, in the order of the list.
//
// A number is in the file before its folder is made, so that a run that was killed in between knows
// the folder for its own. One thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/handle.h"

namespace dorvo {

// The file of the list at that path.
std::wstring madeFoldersPath(const std::wstring& list);

class MadeFolders {
public:
    explicit MadeFolders(std::wstring path);

    // Of a new list nothing is made.
    static bool forget(const std::wstring& path);

    // False with the last error: then the folder must not be made.
    bool add(uint32_t number);
    // The folder that was to be made last, 0 for none.
    uint32_t last() const { return last_; }

    // Which of the numbers up to `items` were added.
    std::vector<bool> all(uint32_t items) const;

private:
    bool open();

    std::wstring path_;
    FileHandle file_;
    uint64_t end_ = 0;  // of the whole numbers
    uint32_t last_ = 0;
};

}  // namespace dorvo
