// The walk behind walkSource, with what its other users need: leaving whole subtrees out, stopping
// early, and a file system that tests can replace.
//
// Levels are kept on the heap, one search handle and two numbers each, so that depth costs no
// stack; nothing else is kept. Calls take the long form of paths; results never show it.
#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <vector>

#include "job/source/sourcewalker.h"

namespace dorvo {

class FilterPolicy;

// The four calls a walk makes; answers and last errors are those of the Win32 functions. Paths come
// as the walk shows them.
class SourceFileSystem {
public:
    virtual ~SourceFileSystem() = default;
    virtual bool attributes(const std::wstring& path, WIN32_FILE_ATTRIBUTE_DATA& data);
    virtual HANDLE findFirst(const std::wstring& pattern, WIN32_FIND_DATAW& entry);
    virtual bool findNext(HANDLE search, WIN32_FIND_DATAW& entry);
    virtual void findClose(HANDLE search);
};

class SourceWalk {
public:
    struct Rules {
        FilterPolicy* filter = nullptr;  // borrowed, null lets everything pass
        // True leaves out the entry and all below it; asked after the filter, with the full path.
        std::function<bool(const std::wstring& path)> excluded;
        // Asked before every entry of a directory; true ends the walk.
        std::function<bool()> stopped;
        SourceFileSystem* files = nullptr;  // borrowed, null is the real one
    };

    // Walker and rules are borrowed for the length of the walk.
    SourceWalk(SourceWalker& walker, const Rules& rules);

    void walk(const std::vector<std::wstring>& sources);

private:
    struct Level {
        HANDLE search;
        size_t pathLength;  // of the directory's own path
    };

    void walkOne(const std::wstring& source);
    void enter(WIN32_FIND_DATAW& entry);
    void visit(const WIN32_FIND_DATAW& entry, bool& descend);
    void leave();
    void fail(DWORD error);
    bool excluded() const { return rules_.excluded && rules_.excluded(path_); }
    bool stopped() const { return rules_.stopped && rules_.stopped(); }

    SourceWalker& walker_;
    const Rules& rules_;
    SourceFileSystem& files_;
    std::wstring path_;  // of the entry under way
    std::vector<Level> levels_;
};

}  // namespace dorvo
