// One file on its way to its place: decoded beside it under a short name of its own, dressed there,
// and then put in its place in one step.
//
// Until place() has answered true, what is at the target is as it was; an object that goes before
// that takes its sibling with it. The sibling's name is made of the run and the item's number, so a
// run that was killed and goes on overwrites what it left; a PlacingRecord lets others find it.
//
// A file that replaces another takes over its access list, owner, alternate streams and encryption
// (ReplacedFile), all of it before the one step that puts it in its place: that step cannot fail
// halfway, as one that also carries these things over can.
//
// The steps are separate so that their failures can be told apart; they come in the order in which
// they stand here. False leaves the reason in the last error, and nothing is logged here but what
// the transformation logs. One thread.
#pragma once

#include <windows.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "base/disk_room.h"
#include "base/handle.h"
#include "base/interrupter.h"
#include "source/transformation.h"
#include "storage/placingrecord.h"
#include "storage/replacedfile.h"

namespace dorvo {

class RestoreTarget {
public:
    // `target` is a full path; `run` is the instance id of the job's run, as on its record. The
    // placing record is borrowed; null keeps none.
    RestoreTarget(std::wstring target, const std::array<uint8_t, 16>& run, uint32_t number,
                  PlacingRecord* placing = nullptr);
    virtual ~RestoreTarget();
    RestoreTarget(const RestoreTarget&) = delete;
    RestoreTarget& operator=(const RestoreTarget&) = delete;

    const std::wstring& path() const { return target_; }
    const std::wstring& sibling() const { return sibling_; }

    // What a content of so many bytes takes of the target's disk, as far as can be told: a folder
    // that compresses may take in more than its disk has room for.
    DiskNeed need(uint64_t bytes) const;

    // Makes the folders above the target. ERROR_DIRECTORY when the last of them is a file.
    bool makeParents();

    // Decodes the package into the sibling. Errors are the transformation's.
    bool decode(const std::wstring& package, RestoreTransformation& with, interrupter* stop);
    // The same of a package that is in memory; `name` is what the log calls it.
    bool decode(std::span<const std::byte> package, const std::wstring& name,
                RestoreTransformation& with);

    // Gives the sibling those of the attributes that can be set. READONLY is kept for place().
    bool setAttributes(DWORD attributes);

    // Sets the three times, in two steps. A file that misses attributes or times can still be put
    // in its place.
    bool openToSetTimes();
    bool setTimes(const WIN32_FILE_ATTRIBUTE_DATA& data);

    // Brings the sibling onto the disk and to its place. With `replace` it replaces the file there,
    // also one that is READONLY, HIDDEN or SYSTEM; a folder is never replaced
    // (ERROR_CANNOT_MAKE). Without it, ERROR_FILE_EXISTS when anything is there.
    bool place(bool replace);

protected:
    // For tests to see in which order, and to let fail.
    virtual bool flushFile(HANDLE file);
    virtual bool moveFile(const std::wstring& from, const std::wstring& to, DWORD flags);

private:
    bool beginSibling();
    bool keepSibling(bool decoded);
    bool makeSibling();
    bool finishSibling();
    bool moveTo();
    bool moveOver();
    void removeSibling();
    bool deleteSibling();

    std::wstring target_;
    std::array<uint8_t, 16> run_;
    uint32_t number_;
    std::wstring sibling_;
    PlacingRecord* placing_;  // borrowed
    ReplacedFile old_;
    FileHandle file_;       // the sibling, from openToSetTimes() on
    DWORD attributes_ = 0;  // those of the file that can be set
    WIN32_FILE_ATTRIBUTE_DATA times_{};
    bool timed_ = false;  // times_ holds the file's
    bool made_ = false;   // the sibling may exist
};

// Makes the folder with those above it. True when it is there; `existed` when it was before.
// ERROR_DIRECTORY when a file is in its place.
bool makeRestoredDirectory(const std::wstring& target, bool& existed);

// Gives a folder the attributes that can be set, and its times. Of a link, the link's own; the root
// of a drive or a share keeps what it has. Everything is tried; the first failure counts.
bool dressRestoredDirectory(const std::wstring& target, const WIN32_FILE_ATTRIBUTE_DATA& data);

}  // namespace dorvo
