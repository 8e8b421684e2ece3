// Walking sources depth first, each directory before its content: what a walk asks, follows and
// leaves out, who hears of it, and the folders on its way that stand for another place.
//
// The filter is asked with the full path of a source and the bare name of everything below. It
// never keeps an ordinary directory from being reported and entered; links below a source are never
// entered. Order is the file system's. A directory that cannot be listed is logged.
//
// Levels are kept on the heap, one search handle and one number each, so that depth costs no stack;
// nothing else is kept. One thread; a SourceWalk is reusable after each walk.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "base/api.h"

namespace dorvo {

class FilterPolicy;

// What a walk reports to: one call for every file and directory found.
class DORVO_JOB_API SourceWalker {
public:
    SourceWalker() = default;
    SourceWalker(const SourceWalker&) = default;
    SourceWalker& operator=(const SourceWalker&) = default;
    virtual ~SourceWalker() = default;

protected:
    friend class SourceWalk;
    // `path` is the entry's full path and lives as long as the call.
    virtual void processFile(const wchar_t* path, const WIN32_FILE_ATTRIBUTE_DATA& data) = 0;
};

// Counts what a walk reports. A walker of one's own derives from it and calls its processFile.
class DORVO_JOB_API SourceCalculator : public SourceWalker {
public:
    uint32_t directoryCount() const { return directories_; }
    uint32_t fileCount() const { return files_; }
    uint64_t fileSize() const { return size_; }  // bytes of the files

protected:
    void processFile(const wchar_t* path, const WIN32_FILE_ATTRIBUTE_DATA& data) override;

private:
    uint32_t directories_ = 0;
    uint32_t files_ = 0;
    uint64_t size_ = 0;
};

// The calls that a walk makes, replaceable for tests.
//
// Answers and last errors are those of the Win32 functions. Paths come as the walk shows them; the
// real calls take their long form.
class SourceFileSystem {
public:
    virtual ~SourceFileSystem() = default;

    virtual bool attributes(const std::wstring& path, WIN32_FILE_ATTRIBUTE_DATA& data);
    // The same of what a link at the path leads to; never with the mark of a link.
    virtual bool targetAttributes(const std::wstring& path, WIN32_FILE_ATTRIBUTE_DATA& data);
    // INVALID_HANDLE_VALUE on failure; else findClose comes once.
    virtual HANDLE findFirst(const std::wstring& pattern, WIN32_FIND_DATAW& entry);
    virtual bool findNext(HANDLE search, WIN32_FIND_DATAW& entry);
    virtual void findClose(HANDLE search);
};

// A walk, with what it asks and whom it tells.
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

// A walk with a filter alone. A source that cannot be found is skipped in silence. The filter may
// be null: everything passes. The walker may be null: nothing is done.
extern "C" DORVO_JOB_API void walkSource(const std::vector<std::wstring>& sources,
                                         FilterPolicy* filter, SourceWalker* walker);

// What a user is told of a folder with that reparse tag, which a walk has listed and not entered.
std::string notEnteredText(const std::wstring& path, DWORD tag);

// The first folder of the path that is a link, the path itself included, from behind the mount
// point on, which the path begins with. Empty when there is none.
DORVO_JOB_API std::wstring firstLinkIn(const std::wstring& path, const std::wstring& mountPoint);

}  // namespace dorvo
