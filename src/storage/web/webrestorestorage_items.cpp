// What the storage does with one file: ask for it, receive its package, decode it into its place.
#include <algorithm>

#include "base/disk_room.h"
#include "base/handle.h"
#include "base/local_time.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "httpmsg/http_names.h"
#include "storage/item_attributes.h"
#include "storage/itemtemppath.h"
#include "storage/restoretarget.h"
#include "storage/web/downloadedblock.h"
#include "storage/web/webrestorestorage.h"

namespace dorvo {
namespace {

// What was received before the machine last started may have been lost to a power cut, although
// the file has its length: such bytes read as zeros, and nothing would tell.
bool isWrittenSinceBoot(HANDLE file) {
    FILETIME written{};
    return GetFileTime(file, nullptr, nullptr, &written) != 0 &&
           toTicks(written) + GetTickCount64() * ticksPerMillisecond >= utcTimeNow();
}

}  // namespace

struct WebRestoreStorage::File {
    std::string name;   // as the service knows it
    std::string place;  // where it goes, for the log
    StoredPath stored;
    std::wstring package;
    RestoreTarget target;
    StoredItem info;
};

bool WebRestoreStorage::restoreFile(const wchar_t* original, const wchar_t* target, uint32_t number,
                                    bool replace) {
    FunctionTrace trace("WebRestoreStorage::restoreFile", "webrestorestorage.cpp");
    const std::string name =
        original == nullptr ? std::string() : withoutTrailingBackslash(toUtf8(original));
    const std::string place = target == nullptr ? std::string() : toUtf8(target);
    if (!valid(name, place) || target == nullptr) {
        return false;
    }
    File file{name,
              place,
              storedPath(task_.from.machine, backupId_, name),
              itemTempPath(temporary_, number),
              RestoreTarget(target, activity_->instanceId, number, task_.placing),
              {}};
    log(LogLevel::debug, "Restoring file {%s}, job {%s, %s}.\n", name.c_str(), task_.jobId.c_str(),
        task_.jobName.c_str());
    beginWork();
    progress_.claim(number);
    return restore(file, replace);
}

bool WebRestoreStorage::restore(File& file, bool replace) {
    log(LogLevel::debug, "Restoring file {%s} to {%s}.\n", file.name.c_str(), file.place.c_str());
    const auto mustStop = [&] {
        return stopped(StoppedAt("Restoring file {%s} is cancelled, at offset {%Q}.\n"), file.name);
    };
    if (mustStop() || !makeParents(file) || mustStop() || !askForFile(file) || mustStop() ||
        !hasRoom(file) || !fetch(file) || mustStop()) {
        return false;
    }
    dress(file);
    if (!place(file, replace)) {
        return false;
    }
    if (DeleteFileW(longPath(file.package).c_str()) == 0) {
        log(LogLevel::warning, "Failed to delete temporary file {%s}, error-code = %d, %m.\n",
            toUtf8(file.package).c_str(), static_cast<int>(GetLastError()));
    }
    return true;
}

// What is on record of an offset belongs to a package of the size on record. Blocks come whole:
// what a run that was killed has received of one is received again.
void WebRestoreStorage::claimPackage(uint64_t size) {
    uint64_t offset = activity_->fileOffset;
    if (activity_->packageSize != size || offset > size) {
        offset = 0;
    } else if (offset != size) {
        offset -= offset % uploadBlockSize;
    }
    progress_.transferring(size, offset);
}

bool WebRestoreStorage::makeParents(File& file) const {
    if (!file.target.makeParents()) {
        return stepFailed(
            StoppedAt("Restoring file {%s} is cancelled when create parents directories, offset "
                      "{%Q}}.\n"),
            file.name, [&](int code) {
                log(LogLevel::error,
                    "Create parent directories of file {%s, target {%s}} failed, %d, %m.\n",
                    file.name.c_str(), file.place.c_str(), code);
            });
    }
    log(LogLevel::debug, "Parent directories restored.\n");
    return true;
}

bool WebRestoreStorage::askForFile(File& file) {
    if (!get_file_info(file.stored, false, file.info)) {
        return stepFailed(
            StoppedAt(
                "Restoring file {%s} is cancelled when download file information, offset {%Q}.\n"),
            file.name, [&](int code) {
                log(LogLevel::error,
                    "Download file information failed, file {%s}, at offset {%Q}, "
                    "error-code = %d, %m.\n",
                    file.name.c_str(), activity_->fileOffset, code);
            });
    }
    log(LogLevel::debug, "File information restored.\n");
    claimPackage(file.info.packageSize);
    return true;
}

// Asked before anything is received: it would all be fetched for nothing.
bool WebRestoreStorage::hasRoom(const File& file) const {
    const uint64_t package = activity_->packageSize - activity_->fileOffset;
    const uint64_t content = sizeOf(fileAttributes(file.info.attributes));
    if (fitsOnDisk({temporary_, package}, file.target.need(content))) {
        return true;
    }
    SetLastError(ERROR_DISK_FULL);
    return stepFailed(StoppedAt("Restoring file {%s} is cancelled, at offset {%Q}.\n"), file.name,
                      [&](int code) {
                          log(LogLevel::error,
                              "There is no room for file {%s}, whose package has %Q bytes and "
                              "whose content %Q, error-code = %d, %m.\n",
                              file.place.c_str(), package, content, code);
                      });
}

// Receives the package and decodes it. What an earlier run has received of it lay on a disk while
// nobody looked after it: if the package is damaged, all of it is received again, once.
bool WebRestoreStorage::fetch(File& file) {
    uint64_t kept = 0;
    if (!receive(file, kept)) {
        return false;
    }
    if (decode(file)) {
        return true;
    }
    if (kept == 0 || GetLastError() != ERROR_INVALID_DATA) {
        return false;
    }
    log(LogLevel::warning,
        "What was received of file {%s} before is damaged, it is fetched again.\n",
        file.name.c_str());
    progress_.transferring(activity_->packageSize, 0);
    return receive(file, kept) && decode(file);
}

// `kept`: the bytes that an earlier run has received.
bool WebRestoreStorage::receive(const File& file, uint64_t& kept) {
    const FileHandle package = openPackage(file);
    if (!package) {
        return false;
    }
    seekToOffset(package.get());
    kept = activity_->fileOffset;
    log(LogLevel::debug, "Start to download file data.\n");
    if (!downloadBlocks(file, package.get())) {
        return false;
    }
    log(LogLevel::debug, "File {%s} downloaded.\n", file.name.c_str());
    return true;
}

FileHandle WebRestoreStorage::openPackage(const File& file) const {
    FileHandle package(CreateFileW(longPath(file.package).c_str(), GENERIC_WRITE, FILE_SHARE_READ,
                                   nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    const std::string name = toUtf8(file.package);
    if (!package) {
        stepFailed(
            StoppedAt("Restoring file {%s} is cancelled when create file to write, offset {%Q}.\n"),
            file.name, [&](int code) {
                log(LogLevel::error,
                    "Failed to create file {%s, target {%s}} to write, offset {%Q}, "
                    "error-code = %d, %m.\n",
                    file.name.c_str(), name.c_str(), activity_->fileOffset, code);
            });
        return package;
    }
    log(LogLevel::debug, "Target file {%s} created.\n", name.c_str());
    return package;
}

void WebRestoreStorage::seekToOffset(HANDLE package) {
    if (activity_->fileOffset != 0 && !isWrittenSinceBoot(package)) {
        log(LogLevel::information, "Temporary file is of another start of the machine.\n");
        progress_.backTo(0, 0);
    }
    LARGE_INTEGER size{};
    if (GetFileSizeEx(package, &size) == 0 ||
        static_cast<uint64_t>(size.QuadPart) < activity_->fileOffset) {
        log(LogLevel::warning, "File size is smaller than file offset recorded by job activity.\n");
        progress_.backTo(0, 0);
    }
    LARGE_INTEGER offset{};
    offset.QuadPart = static_cast<LONGLONG>(activity_->fileOffset);
    if (SetFilePointerEx(package, offset, nullptr, FILE_BEGIN) == 0) {
        log(LogLevel::error, "Failed to seek file to {%Q}.\n", activity_->fileOffset);
        progress_.backTo(0, 0);
        SetFilePointerEx(package, LARGE_INTEGER{}, nullptr, FILE_BEGIN);
    }
}

// Counts by itself what has come: neither the number of blocks that the service names nor the
// answer to one block is believed.
bool WebRestoreStorage::downloadBlocks(const File& file, HANDLE package) {
    constexpr StoppedAt cancelled =
        "Restoring file {%s} is cancelled when download file data, offset {%Q}.\n";
    const auto failed = [&] {
        return stepFailed(cancelled, file.name, [&](int code) {
            log(LogLevel::error,
                "Failed to download file {%s}, offset {%Q}, error-code = %d, %m.\n",
                file.name.c_str(), activity_->fileOffset, code);
        });
    };
    const uint64_t size = file.info.packageSize;
    while (activity_->fileOffset < size) {
        if (stopped(cancelled, file.name)) {
            return false;
        }
        const uint64_t begin = activity_->fileOffset;
        const uint64_t end = begin + std::min<uint64_t>(uploadBlockSize, size - begin);
        if (!download_block(file, package, begin)) {
            return failed();
        }
        const DWORD left = GetLastError();
        if (left != ERROR_SUCCESS || activity_->fileOffset != end) {
            progress_.backTo(0, begin);
            SetLastError(left != ERROR_SUCCESS ? left : DWORD{malformedBlock});
            return failed();
        }
        log(LogLevel::debug, "File data {%Q} to {%Q} downloaded.\n", begin, end);
    }
    // What an earlier run or a block that was too long has left behind the package's end.
    return SetEndOfFile(package) != 0 || failed();
}

bool WebRestoreStorage::download_block(const File& file, HANDLE package, uint64_t offset) {
    FunctionTrace trace("WebRestoreStorage::download_block", "webrestorestorage.cpp");
    download_.request() = {file.stored, offset / uploadBlockSize + 1};
    download_.state(HTTP_Command::READY);
    switch (exchange(download_)) {
        case Exchanged::done: break;
        case Exchanged::broken:
            log(LogLevel::error,
                "Download file data failed, file {%s}, offset {%Q},, error-code = %d, %m.\n",
                file.name.c_str(), offset, static_cast<int>(GetLastError()));
            return false;
        case Exchanged::refused: {
            const int status = download_.response().status();
            log(LogLevel::error,
                "Download file data failed, file {%s}, offset {%Q}, error-code = %d, %s.\n",
                file.name.c_str(), offset, status, http_status_string(status));
            return false;
        }
    }
    const Download_Data_Type& body = download_.response().body();
    *progress_.wire() += body.size();
    return storeDownloadedBlock(package, {body.data(), body.size()},
                                download_.response().content_length(), file.name, offset,
                                progress_);
}

bool WebRestoreStorage::decode(File& file) {
    if (stopped(StoppedItem("Restoring is cancelled when going to decrypt/decompress file {%s}.\n"),
                file.name)) {
        return false;
    }
    log(LogLevel::debug, "Start to decrypt/decompress file {%s}.\n", file.name.c_str());
    progress_.state(CurrentFileState::encoding);
    if (!file.target.decode(file.package, file.info.compressed ? compressed_ : plain_, this)) {
        return stepFailed(
            StoppedItem("Restoring is cancelled when decrypt/decompress file {%s}.\n"), file.name,
            [&](int code) {
                log(LogLevel::error,
                    "Decrypt/Decompress file {original {%s}, target {%s}, new {%s}} failed, "
                    "error-code = %d, %m.\n",
                    file.name.c_str(), toUtf8(file.package).c_str(), file.place.c_str(), code);
            });
    }
    log(LogLevel::debug, "File {%s} decrypted/decompressed.\n", file.name.c_str());
    return true;
}

// The content is worth more than what it is dressed with.
void WebRestoreStorage::dress(File& file) const {
    const WIN32_FILE_ATTRIBUTE_DATA data = fileAttributes(file.info.attributes);
    const auto failed = [&](LogText<std::string, int> words) {
        log(LogLevel::error, words, file.place.c_str(), static_cast<int>(GetLastError()));
    };
    if (!file.target.setAttributes(data.dwFileAttributes)) {
        failed("Set file {%s} attributes failed, error-code = %d, %m.\n");
    }
    if (!file.target.openToSetTimes()) {
        failed("Failed to open file {%s} to set time, error-code = %d, %m.\n");
    } else if (!file.target.setTimes(data)) {
        failed("Set file {%s} time failed, error-code = %d, %m.\n");
    }
}

bool WebRestoreStorage::place(File& file, bool replace) const {
    if (file.target.place(replace)) {
        return true;
    }
    return stepFailed(StoppedAt("Restoring file {%s} is cancelled, at offset {%Q}.\n"), file.name,
                      [&](int code) {
                          log(LogLevel::error,
                              "Failed to put file {%s} in its place {%s}, error-code = %d, %m.\n",
                              file.name.c_str(), file.place.c_str(), code);
                      });
}

}  // namespace dorvo
