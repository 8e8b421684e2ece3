// Judges whether a restored item may be written: what a service calls an item's path is not to be
// trusted, and nothing that is restored may land outside the folder that was chosen.
//
// Text only; what the disk makes of a path is asked in restorepathlinks.h. A path that passes is
// "X:\..." or "\\server\share\..." with names throughout that a file can have. Some of them mean a
// device or another file without the \\?\ form ("aux.c", "name.", "name "), so that nothing but
// that form of a target ever goes to the system (longPath).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace dorvo {

enum class RestorePathFault {
    none,
    notAbsolute,  // relative, drive-relative, or a server without a share
    otherScheme,  // \\?\, \\.\, \??\ and the like
    forwardSlash,
    emptyName,        // two separators in a row, or one at the end
    dotName,          // "." or ".."
    alternateStream,  // a colon after the drive's
    forbiddenCharacter,
    deviceShare,  // \\server\pipe ...
    onlyDotsAndSpaces,
    nameTooLong,    // above 255 UTF-16 units
    outsidePrefix,  // the original is not below the part of the paths that is replaced
    noPlace,        // a share's item, and no prefix tells what of its path goes below the root
    outsideRoot,    // the target is not below the chosen folder
    rootIsNoFile,   // a file would take the chosen folder's own place
    link,           // see restorepathlinks.h
    unknownParent,
    ownData,  // see source/owndata.h
};

struct RestorePathRequest {
    std::wstring_view original = {};  // as the service gave it
    // What the location stands for, without a backslash at its end; may be empty.
    std::wstring_view prefix = {};
    std::wstring_view root = {};    // the chosen folder; empty: the original place
    std::wstring_view target = {};  // where the item would go, before any suffix
    bool directory = false;
    // Of a restore to the original place: the folder down to which the way is the user's own
    // choice, links included; empty where that is the drive or the share.
    std::wstring_view ownWay = {};
    // How names are compared; null takes A to Z for a to z and nothing else.
    bool (*sameName)(std::wstring_view a, std::wstring_view b) = nullptr;
};

// The first fault found. A drive's or a share's root ("C:", "C:\", "\\server\share") is a path; as
// a target, and a target that is the root itself, only of a directory.
RestorePathFault checkRestorePath(const RestorePathRequest& request);

// Where the names begin that may be examined for links: behind the root with its separator; behind
// the drive or the share when the root is empty. `target` has passed.
size_t restoredPartOf(std::wstring_view target, std::wstring_view root);

// The Win32 code and the words for whoever asks why the item failed; 0 and "" for none.
uint32_t restorePathCode(RestorePathFault fault);
const char* restorePathText(RestorePathFault fault);

}  // namespace dorvo
