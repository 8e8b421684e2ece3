// What a restored file takes over from the file that it replaces: the access list, the owner, the
// alternate streams, and that it is encrypted. A backup has none of these, and without them a
// private file would become readable to whoever may read its folder.
//
// The list of audited accesses is not carried over: that takes a right that only few have. One
// thread; nothing here touches the file that is replaced.
#pragma once

#include <windows.h>

#include <cstddef>
#include <string>
#include <vector>

namespace dorvo {

class ReplacedFile {
public:
    explicit ReplacedFile(std::wstring path) : path_(std::move(path)) {}

    // Takes down what is at the path now; of a file that is gone, what was there at an earlier
    // look. False with the last error when that cannot be told. Folders are none of ours.
    bool look();
    bool found() const { return found_; }

    // Makes the empty file that is to become the successor: encrypted for the same users, else for
    // this process's user, administrators and the system alone. Whoever writes over its content
    // keeps that. Only of a file that was found(). False with the last error.
    bool makeSuccessor(const std::wstring& successor) const;

    // Gives the successor what was found, its access list last. Nothing but an owner that this
    // process may not give is left out; that is logged. False with the last error.
    bool handDown(const std::wstring& successor);

private:
    bool readAccess(HANDLE file);
    bool copyStreams(const std::wstring& successor) const;
    void giveOwner(const std::wstring& successor);
    bool giveAccess(const std::wstring& successor);

    std::wstring path_;
    bool found_ = false;
    bool link_ = false;
    bool encrypted_ = false;
    std::vector<std::byte> access_;  // a security descriptor; empty where the disk has none
};

}  // namespace dorvo
