#include "storage/restoretarget.h"

#include "base/last_error.h"
#include "base/paths.h"
#include "storage/restoresibling.h"

namespace dorvo {
namespace {

constexpr DWORD readOnly = FILE_ATTRIBUTE_READONLY;
constexpr DWORD settableAttributes = readOnly | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM |
                                     FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_TEMPORARY |
                                     FILE_ATTRIBUTE_OFFLINE | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;
constexpr DWORD settableOfFolders = settableAttributes & ~DWORD{FILE_ATTRIBUTE_TEMPORARY};
// What forbids to replace a file.
constexpr DWORD guardingAttributes = readOnly | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

DWORD attributesOf(const std::wstring& path) {
    return GetFileAttributesW(longPath(path).c_str());
}

bool setAttributesOf(const std::wstring& path, DWORD attributes) {
    return SetFileAttributesW(longPath(path).c_str(),
                              attributes != 0 ? attributes : DWORD{FILE_ATTRIBUTE_NORMAL}) != 0;
}

bool setTimesOf(HANDLE file, const WIN32_FILE_ATTRIBUTE_DATA& data) {
    return SetFileTime(file, &data.ftCreationTime, &data.ftLastAccessTime, &data.ftLastWriteTime) !=
           0;
}

// The folder that the path lies in, as far as text can tell; empty for a root.
std::wstring folderOf(const std::wstring& path) {
    const size_t end = path.find_last_of(L'\\');
    return end == std::wstring::npos ? std::wstring() : path.substr(0, end);
}

bool makeFolder(const std::wstring& path, bool& existed) {
    // A root is there or cannot be made; without its backslash a drive would mean another folder.
    const bool root = isVolumeRoot(path);
    const std::wstring folder = root && !path.ends_with(L'\\') ? path + L'\\' : path;
    DWORD attributes = attributesOf(folder);
    existed = attributes != INVALID_FILE_ATTRIBUTES;
    if (!existed) {
        if (root || !createDirectories(folder)) {
            return false;
        }
        attributes = attributesOf(folder);
    }
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return false;
    }
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        SetLastError(ERROR_DIRECTORY);
        return false;
    }
    return true;
}

}  // namespace

RestoreTarget::RestoreTarget(std::wstring target, const std::array<uint8_t, 16>& run,
                             uint32_t number, PlacingRecord* placing)
    : target_(std::move(target)),
      run_(run),
      number_(number),
      sibling_(siblingPath(target_, run, number)),
      placing_(placing),
      old_(target_) {}

RestoreTarget::~RestoreTarget() {
    if (made_) {
        removeSibling();
    }
}

DiskNeed RestoreTarget::need(uint64_t bytes) const {
    const std::wstring folder = folderOf(target_);
    const DWORD found = attributesOf(folder);
    const bool compressing =
        found != INVALID_FILE_ATTRIBUTES && (found & FILE_ATTRIBUTE_COMPRESSED) != 0;
    return {folder, compressing ? 0 : bytes};
}

bool RestoreTarget::makeParents() {
    bool existed = false;
    return makeFolder(folderOf(target_), existed);
}

bool RestoreTarget::decode(const std::wstring& package, RestoreTransformation& with,
                           interrupter* stop) {
    return beginSibling() &&
           keepSibling(with.transform(package.c_str(), sibling_.c_str(), nullptr, stop));
}

bool RestoreTarget::decode(std::span<const std::byte> package, const std::wstring& name,
                           RestoreTransformation& with) {
    return beginSibling() && keepSibling(with.transform(package, name.c_str(), sibling_.c_str()));
}

bool RestoreTarget::beginSibling() {
    return (placing_ == nullptr || placing_->announce(run_, number_, sibling_)) && makeSibling();
}

bool RestoreTarget::keepSibling(bool decoded) {
    if (!decoded) {
        removeSibling();
    }
    return decoded;
}

// What replaces a file is nobody else's to read before it has that one's access list.
bool RestoreTarget::makeSibling() {
    deleteSibling();  // a leftover's attributes could forbid to write over it
    made_ = true;
    if (old_.look() && (!old_.found() || old_.makeSuccessor(sibling_))) {
        return true;
    }
    removeSibling();
    return false;
}

bool RestoreTarget::setAttributes(DWORD attributes) {
    attributes_ = attributes & settableAttributes;
    return setAttributesOf(sibling_, attributes_ & ~readOnly);
}

bool RestoreTarget::openToSetTimes() {
    // Renamed under this handle, so deleting is shared.
    file_.reset(CreateFileW(longPath(sibling_).c_str(), GENERIC_WRITE, shareAll, nullptr,
                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    return static_cast<bool>(file_);
}

bool RestoreTarget::setTimes(const WIN32_FILE_ATTRIBUTE_DATA& data) {
    times_ = data;
    timed_ = setTimesOf(file_.get(), times_);
    return timed_;
}

bool RestoreTarget::place(bool replace) {
    if (!finishSibling() || !(replace ? moveOver() : moveTo())) {
        removeSibling();
        return false;
    }
    made_ = false;
    if (placing_ != nullptr) {
        placing_->settle();
    }
    if (timed_) {
        // A file that takes the name of one just gone may be given that one's creation time.
        setTimesOf(file_.get(), times_);
    }
    file_.reset();
    return true;
}

bool RestoreTarget::finishSibling() {
    if (!file_ && !openToSetTimes()) {
        return false;
    }
    if (!old_.look() || (old_.found() && !old_.handDown(sibling_))) {
        return false;
    }
    if (old_.found()) {
        // Where the disk makes one of access list and READONLY, the backup's attribute holds.
        setAttributesOf(sibling_, attributes_ & ~readOnly);
    }
    if (old_.found() && timed_) {
        setTimesOf(file_.get(), times_);  // which the alternate streams have changed
    }
    return flushFile(file_.get()) &&
           ((attributes_ & readOnly) == 0 || setAttributesOf(sibling_, attributes_)) &&
           (placing_ == nullptr || placing_->choose(target_, file_.get()));
}

bool RestoreTarget::flushFile(HANDLE file) {
    return FlushFileBuffers(file) != 0;
}

bool RestoreTarget::moveFile(const std::wstring& from, const std::wstring& to, DWORD flags) {
    return MoveFileExW(longPath(from).c_str(), longPath(to).c_str(),
                       flags | MOVEFILE_WRITE_THROUGH) != 0;
}

bool RestoreTarget::moveTo() {
    if (moveFile(sibling_, target_, 0)) {
        return true;
    }
    if (GetLastError() == ERROR_ALREADY_EXISTS) {
        SetLastError(ERROR_FILE_EXISTS);
    }
    return false;
}

bool RestoreTarget::moveOver() {
    const DWORD old = attributesOf(target_);
    const bool exists = old != INVALID_FILE_ATTRIBUTES;
    if (exists && (old & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        SetLastError(ERROR_CANNOT_MAKE);
        return false;
    }
    const bool guarded = exists && (old & guardingAttributes) != 0;
    if (guarded) {
        setAttributesOf(target_, old & settableAttributes & ~guardingAttributes);
    }
    if (moveFile(sibling_, target_, MOVEFILE_REPLACE_EXISTING)) {
        return true;
    }
    if (guarded) {
        LastErrorGuard keep;
        setAttributesOf(target_, old & settableAttributes);
    }
    return false;
}

void RestoreTarget::removeSibling() {
    LastErrorGuard keep;
    made_ = false;
    if (deleteSibling() && placing_ != nullptr) {
        placing_->settle();
    }
}

// The record is told by removeSibling() alone: one that is about to be made has to stay there.
bool RestoreTarget::deleteSibling() {
    LastErrorGuard keep;
    file_.reset();
    return setAttributesOf(sibling_, 0) ? DeleteFileW(longPath(sibling_).c_str()) != 0
                                        : GetLastError() == ERROR_FILE_NOT_FOUND;
}

bool makeRestoredDirectory(const std::wstring& target, bool& existed) {
    return makeFolder(target, existed);
}

bool dressRestoredDirectory(const std::wstring& target, const WIN32_FILE_ATTRIBUTE_DATA& data) {
    if (isVolumeRoot(target)) {
        return true;
    }
    DWORD error = ERROR_SUCCESS;
    if (!setAttributesOf(target, data.dwFileAttributes & settableOfFolders)) {
        error = GetLastError();
    }
    const FileHandle folder(CreateFileW(
        longPath(target).c_str(), FILE_WRITE_ATTRIBUTES, shareAll, nullptr, OPEN_EXISTING,
        FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    if ((!folder || !setTimesOf(folder.get(), data)) && error == ERROR_SUCCESS) {
        error = GetLastError();
    }
    SetLastError(error);
    return error == ERROR_SUCCESS;
}

}  // namespace dorvo
