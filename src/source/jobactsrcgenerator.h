// Produces a run's source list: walks the sources of every volume, through the snapshot where there
// is one, and writes what has to be sent.
//
// Directories are always written; files go through the increment check in batches of 1000, in the
// order of the walk, so memory does not grow with their number. Records name live paths and carry
// item numbers from 1. The list is written under another name and renamed when it is complete: a
// list that is there is whole, but may be an older run's, so whoever begins a new run deletes it.
//
// A source that is a link, or a folder with a volume mounted in it, stands for what it leads to;
// below a source such folders are listed and not entered. A source that lies below another one is
// walked once, as itself.
//
// An object generates one list. It runs on the caller's thread and blocks until the list is there.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "base/interrupter.h"
#include "record/jobactsrcwriter.h"
#include "source/exclusionlist.h"
#include "source/incrementcheck.h"
#include "source/jobvolume.h"
#include "source/sourcewalk.h"

namespace dorvo {

class JobActivitySourceGenerator : private SourceCalculator {
public:
    struct Options {
        FilterPolicy* filter = nullptr;  // borrowed, null lets everything pass
        ExcludedPaths excluded;          // live paths left out with all that lies below them
        // True leaves out an entry, by its live path, and all below it. Null leaves out nothing.
        std::function<bool(const ComparablePath& path)> leavesOut;
        IncrementCheck* check = nullptr;    // borrowed, null sends every file
        const interrupter* stop = nullptr;  // borrowed, asked between batches
        // Told of what a backup would lack, with its live path and an error code: an entry that no
        // record can hold (it counts in walked() and is not in the list), one whose name does not
        // survive UTF-8 (1113; its halves of pairs spelled out, for itself and all below it), a
        // source that cannot be read, a folder that cannot be listed to its end. Called on the
        // generating thread.
        std::function<void(const std::wstring& path, DWORD error)> failedItem;
        // Told of each entry that is to be in the list or is unchanged, by its live path.
        std::function<void(const std::wstring& path)> found;
        // Told of each folder below a source that is a link, or a volume mounted there, with its
        // reparse tag: it is in the list, and nothing behind it.
        std::function<void(const std::wstring& path, DWORD tag)> leftOut;
        SourceFileSystem* files = nullptr;  // borrowed, null is the real one
    };

    explicit JobActivitySourceGenerator(Options options);

    // Writes the list of the volumes' sources to `path`. False, with no list left under that name
    // that was not there before: the last error says why, 1223 when the interrupter said stop.
    bool generate(const std::wstring& path, const VolumeMap& volumes);

    // Everything that the walk found, and of that what the list holds.
    const SourceCalculator& walked() const { return *this; }
    uint32_t directoryCount() const { return directories_; }
    uint32_t fileCount() const { return files_; }
    uint64_t fileSize() const { return size_; }            // bytes of the files to send
    uint64_t unchangedSize() const { return unchanged_; }  // bytes of those left out
    // Whether the filter alone has kept a file out.
    bool filteredOut() const { return filteredOut_; }

private:
    struct Entry {
        std::wstring path;
        WIN32_FILE_ATTRIBUTE_DATA data{};
    };

    void processFile(const wchar_t* path, const WIN32_FILE_ATTRIBUTE_DATA& data) override;
    SourceWalk::Rules walkRules();
    bool isOtherSource(const std::wstring& live, const ComparablePath& compared) const;
    bool write(const VolumeMap& volumes);
    bool writeVolume(const JobVolume& volume, const SourceWalk::Rules& rules);
    bool writeBatch();
    bool askCheck(std::vector<bool>& send);
    bool writeEntry(const Entry& entry);
    bool interrupted();
    bool fail(DWORD error);

    Options options_;
    JobHistorySourceWriter* writer_ = nullptr;  // borrowed while the list is written
    std::wstring walked_;  // the source under way as it is walked, and as it is recorded
    std::wstring source_;
    std::set<std::wstring> sources_;  // all of them, in comparable form
    std::vector<Entry> batch_;
    uint32_t sincePoll_ = 0;  // entries
    size_t filesInBatch_ = 0;
    uint32_t itemNumber_ = 0;  // of the last record
    uint32_t directories_ = 0;
    uint32_t files_ = 0;
    uint64_t size_ = 0;
    uint64_t unchanged_ = 0;
    bool filteredOut_ = false;
    DWORD error_ = ERROR_SUCCESS;  // what ended the generation
};

}  // namespace dorvo
