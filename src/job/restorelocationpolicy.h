// Where a restored item goes, and whether it goes there at all when something is there already.
//
// The paths are composed as text and not judged: restorepath.h does that, of the target as it is
// without a suffix (`noCheck` set), since a suffix leads nowhere else. Asking for existence is the
// only look at the disk.
#pragma once

#include <cstdint>
#include <string>

namespace dorvo {

class RestoreLocationPolicy {
public:
    // `conflict` as RestoreJobDefinition has it: an item whose target exists is left out, or ".0",
    // then
    // ".1", ".2" ... are appended until the name is free, or the target is used as it is.
    explicit RestoreLocationPolicy(int32_t conflict) : conflict_(conflict) {}
    virtual ~RestoreLocationPolicy() = default;

    // Writes the target of the item that was backed up as `original` (may be null). False: the item
    // is left out. With `noCheck` the conflict mode does not count.
    virtual bool targetPath(const wchar_t* original, bool noCheck, std::wstring& target) const = 0;

protected:
    // Whether anything is at the path; for tests to replace.
    virtual bool exists(const std::wstring& path) const;

    bool resolveConflict(bool noCheck, std::wstring& target) const;

private:
    int32_t conflict_;
};

// Back to where it was.
class RestoreOriginalLocationPolicy : public RestoreLocationPolicy {
public:
    using RestoreLocationPolicy::RestoreLocationPolicy;
    bool targetPath(const wchar_t* original, bool noCheck, std::wstring& target) const override;
};

// Into another folder.
//
// Nothing is put between the location and what follows, so a location ends with a backslash; the
// prefix ends without one, as one character more than the prefix is cut off. Without a prefix a
// drive letter becomes a folder's name, and a path without one contributes nothing.
class RestoreOtherLocationPolicy : public RestoreLocationPolicy {
public:
    // A null location counts as empty; its slashes become backslashes.
    RestoreOtherLocationPolicy(int32_t conflict, const wchar_t* location,
                               std::wstring sourcePrefix);
    bool targetPath(const wchar_t* original, bool noCheck, std::wstring& target) const override;

    const std::wstring& location() const { return location_; }

private:
    std::wstring location_;
    std::wstring sourcePrefix_;
};

}  // namespace dorvo
