// What is on record of the file that a restore is bringing to its place:
// <data directory>\restoring\<job id>, see docs/formats/placing-record.md.
//
// The sibling's path is there before the sibling is made, so that a run which was killed leaves no
// readable file that nobody knows of. The target and the identity of what goes there are on record
// before the file is moved, so that a run which was killed just then knows its own file again,
// instead of placing it a second time under another name. Both hold against the end of the process;
// against a power cut the record names the folder in which the sibling lies.
//
// The records do not lie in the jobs' directories because they outlive them: a sibling that cannot
// be deleted when its run ends (its drive is away) goes at the start of a later restore, of
// whatever job. One thread at a time; records of several jobs are independent.
#pragma once

#include <windows.h>

#include <array>
#include <cstdint>
#include <string>

#include "base/handle.h"

namespace dorvo {

class PlacingRecord {
public:
    using Run = std::array<uint8_t, 16>;

    // What tells of a file: GetFileInformationByHandle, or a test's own.
    using Look = BOOL(WINAPI*)(HANDLE, BY_HANDLE_FILE_INFORMATION*);

    // Reads what an earlier process has left. The id is that of a job.
    explicit PlacingRecord(const std::string& jobId, Look look = GetFileInformationByHandle);

    // The item's sibling is about to be made. False with the last error: then it must not be.
    bool announce(const Run& run, uint32_t item, const std::wstring& sibling);
    // The sibling, which is complete, is about to become `target`. False as above. Where the disk
    // does not tell files apart nothing is noted, and a killed run brings the item again.
    bool choose(const std::wstring& target, HANDLE sibling);
    // The sibling has become the target, or is deleted.
    void settle() { unsettled_ = false; }

    // Whether the item's file is in its place, although no run has come past it.
    bool isPlaced(const Run& run, uint32_t item) const;

    // Deletes what is left of a sibling. False with the last error when there may be one still.
    bool removeSibling();
    // The run is over: its sibling goes, and its record unless that failed.
    void finish();

    // Does what finish() could not do for jobs that are no more or have begun another run, and
    // deletes the siblings of killed runs. Leaves alone what a job works with right now.
    static void sweep();

private:
    // What tells a file from all others, wherever it is moved to on its volume.
    struct Identity {
        uint64_t volume = 0;
        uint64_t index = 0;
        uint64_t size = 0;
        uint64_t written = 0;

        bool operator==(const Identity&) const = default;
    };
    struct Content {
        Run run{};
        uint32_t item = 0;
        std::wstring sibling;
        std::wstring target;  // empty before choose()
        Identity identity;
    };

    bool identify(HANDLE file, Identity& identity) const;
    static Content read(const std::wstring& path);
    bool openFile();
    bool write();

    std::wstring path_;
    Look look_;
    FileHandle file_;  // from the first announce() on
    Content content_;
    uint64_t length_ = 0;         // of the file
    std::wstring flushedFolder_;  // that the disk knows to hold siblings of this run
    bool unsettled_ = false;      // a sibling may be there
};

}  // namespace dorvo
