// The walk behind walkSource, with what its other users need: leaving whole subtrees out, stopping
// early, and a file system that tests can replace.
//
// Levels are kept on the heap, one search handle and one number each, so that depth costs no stack;
// nothing else is kept. One thread; reusable after each walk.
#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <vector>

#include "source/sourcefilesystem.h"
#include "source/sourcewalker.h"

namespace dorvo {

class FilterPolicy;

class SourceWalk {
public:
    struct Rules {
        FilterPolicy* filter = nullptr;  // borrowed, null lets everything pass
        // True leaves out the entry and all below it; asked after the filter, with the full path.
        std::function<bool(const std::wstring& path)> excluded;
        // True leaves out the entry and all below it too, asked once of each that would be
        // reported.
        std::function<bool(const std::wstring& path)> refused;
        // Told of a source that cannot be read and of a folder that cannot be listed to its end.
        std::function<void(const std::wstring& path, DWORD error)> failed;
        // Told of a folder below a source that is a link, or a volume mounted there, with its
        // reparse tag: nothing behind it is walked.
        std::function<void(const std::wstring& path, DWORD tag)> notEntered;
        // A source that is itself a link stands for what it leads to: it is reported with the
        // target's attributes and entered. Otherwise it is reported and not entered.
        bool followSources = false;
        // Asked before every entry of a directory; true ends the walk.
        std::function<bool()> stopped;
        SourceFileSystem* files = nullptr;  // borrowed, null is the real one
    };

    // The walker is borrowed.
    SourceWalk(SourceWalker& walker, Rules rules);
    ~SourceWalk();
    SourceWalk(const SourceWalk&) = delete;
    SourceWalk& operator=(const SourceWalk&) = delete;

    void walk(const std::vector<std::wstring>& sources);

    // Whether the filter has kept out a file that is not excluded anyway.
    bool filteredOut() const { return filteredOut_; }

private:
    struct Level {
        HANDLE search;
        size_t pathLength;  // of the directory's own path
    };

    void walkSource(const std::wstring& source);
    bool visit();
    bool enter();
    bool advance();
    void leave();
    bool included(const wchar_t* name) const;
    bool report(const WIN32_FILE_ATTRIBUTE_DATA& data);
    std::wstring pattern() const;
    void listFailed(DWORD error) const;
    void tellFailure(DWORD error) const;
    void tellNotEntered() const;
    void noteFilteredOut();
    bool excluded() const { return rules_.excluded && rules_.excluded(path_); }
    bool stopped() const { return rules_.stopped && rules_.stopped(); }

    SourceWalker& walker_;
    Rules rules_;
    SourceFileSystem real_;
    SourceFileSystem& files_;
    std::wstring path_;       // of the entry under way
    WIN32_FIND_DATAW entry_;  // of the innermost level, not yet visited
    std::vector<Level> levels_;
    bool filteredOut_ = false;
};

}  // namespace dorvo
