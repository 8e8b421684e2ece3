// What the storage does with one item: encode it, announce it, send its blocks.
#include <algorithm>
#include <span>

#include "base/handle.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/md5.h"
#include "base/paths.h"
#include "base/text.h"
#include "http_util/command_to_server.h"
#include "storage/item_attributes.h"
#include "storage/itemtemppath.h"
#include "storage/web/web_requests.h"
#include "storage/web/webbackupstorage.h"

namespace dorvo {
namespace {

int code(DWORD error) {
    return static_cast<int>(error);
}

}  // namespace

struct WebBackupStorage::Item {
    std::string name;  // as the service knows it
    const WIN32_FILE_ATTRIBUTE_DATA& data;
    bool directory;
    std::wstring source;  // where it is read from
    std::wstring target;  // its package; empty for a directory
};

bool WebBackupStorage::upload_file_info(const Item& item, std::optional<uint64_t>& held) {
    FunctionTrace trace("WebBackupStorage::upload_file_info", "webbackupstorage.cpp");
    Command_To_Server<Upload_File_Request, Response_T<std::string>> command(
        "Upload File", {instanceId_, item.name, itemAttributes(item.data), activity_->packageSize});
    if (!exchange(command, "upload file information", item.name)) {
        return false;
    }
    held = readHeldBlocks(command.response().body());
    return true;
}

bool WebBackupStorage::upload_file_data(const Item& item, const std::byte* data, DWORD length) {
    FunctionTrace trace("WebBackupStorage::upload_file_data", "webbackupstorage.cpp");
    const std::span<const std::byte> block(data, length);
    const auto number = static_cast<uint32_t>(activity_->fileOffset / uploadBlockSize) + 1;
    const std::string md5 = Md5::of(block);
    Command_To_Server<Upload_Data_Request, Response_T<std::string>> command(
        "Upload Data", {instanceId_, item.name, md5, number, block});
    if (!exchange(command, "upload file data", item.name)) {
        return false;
    }
    accepted_.add(md5);
    return true;
}

// A step of an item has failed. While the job must stop that counts as cancelled, whatever the
// error is.
template <class LogFailure>
bool WebBackupStorage::stepFailed(const Item& item, StoppedLine cancelled,
                                  LogFailure logFailure) const {
    LastErrorGuard keep;
    const bool stop = interrupted();
    SetLastError(keep.error());
    if (!stop) {
        logFailure(code(keep.error()));
        return false;
    }
    if (const auto* target = std::get_if<StoppedTarget>(&cancelled)) {
        log(LogLevel::information, *target, item.name, toUtf8(item.target), activity_->fileOffset,
            keep.error());
    } else {
        log(LogLevel::information, std::get<StoppedItem>(cancelled), item.name,
            activity_->fileOffset, keep.error());
    }
    keep.set(ERROR_CANCELLED);
    return false;
}

bool WebBackupStorage::backup(const wchar_t* path, const WIN32_FILE_ATTRIBUTE_DATA& data,
                              uint32_t number, const wchar_t* readFrom) {
    FunctionTrace trace("WebBackupStorage::backup", "webbackupstorage.cpp");
    const bool directory = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    const Item item{withoutTrailingBackslash(toUtf8(path)), data, directory,
                    readFrom == nullptr ? path : readFrom,
                    directory ? std::wstring() : itemTempPath(temporary_, number)};
    log(LogLevel::debug, "Backing up file {%s}.\n", item.name.c_str());
    beginWork();
    progress_.claim(number);
    if (store(item)) {
        return true;
    }
    SetLastError(errorOf(GetLastError()));
    return false;
}

bool WebBackupStorage::store(const Item& item) {
    log(LogLevel::debug, "%s", "File {%} is increment, start to encrypt/compress.\n");
    if (!item.directory && !encode(item)) {
        return false;
    }
    log(LogLevel::debug, "%s",
        "File {%} is ecrypted/compressed, start to upload file information.\n");
    // A failed exchange has been logged already.
    const auto logged = [](int) {};
    std::optional<uint64_t> held;
    if (!upload_file_info(item, held)) {
        return stepFailed(
            item,
            StoppedItem("File {%s} backing up is cancelled when upload file information at "
                        "offset {%Q}, error-code = %d, %m.\n"),
            logged);
    }
    if (item.directory) {
        return !interrupted() ||
               stepFailed(
                   item,
                   StoppedItem(
                       "File {%s} backing up is cancelled when upload directory data, offset "
                       "{%Q}, error-code = %d, %m.\n"),
                   logged);
    }
    log(LogLevel::debug, "%s", "File {%} information uploaded, start to upload file data.\n");
    if (held && *held < accepted_.count() && !goBack(item, *held)) {
        return stepFailed(
            item,
            StoppedItem("File {%s} backing up is cancelled when upload file data, offset {%Q}, "
                        "error-code = %d, %m.\n"),
            logged);
    }
    if (!send(item)) {
        return false;
    }
    if (DeleteFileW(longPath(item.target).c_str()) == 0) {
        LastErrorGuard keep;
        log(LogLevel::warning, "Failed to delete temporary file {%s}, error-code = %d, %m.\n",
            toUtf8(item.target).c_str(), code(keep.error()));
    }
    log(LogLevel::debug, "%s", "Remove temporary file and return. File {%}.\n");
    return true;
}

AcceptedBlocks WebBackupStorage::noneAccepted(const std::string& name, uint64_t size) const {
    return AcceptedBlocks(instanceId_ + '\n' + name + '\n' + std::to_string(size));
}

bool WebBackupStorage::encode(const Item& item) {
    progress_.encoding(sizeOf(item.data));
    const bool encoded =
        transformation_.transform(item.source.c_str(), item.target.c_str(), &item.data, this);
    constexpr StoppedItem cancelled =
        "File {%s} backing up is cancelled when encrypt/compress at offset {%Q}, error-code = %d, "
        "%m.\n";
    if (!encoded && errorOf(GetLastError()) == ERROR_CANCELLED) {
        log(LogLevel::information,
            "File {%s} backing up is cancelled when ecrypt/compress, offset {%Q}.\n",
            item.name.c_str(), activity_->fileOffset);
        return false;
    }
    if (!encoded) {
        return stepFailed(item, cancelled, [&](int error) {
            log(LogLevel::error, "Encrypt/compress file {%s} failed, error-code = %d, %m.\n",
                item.name.c_str(), error);
        });
    }
    WIN32_FILE_ATTRIBUTE_DATA package{};
    if (!readAttributes(item.target, package)) {
        log(LogLevel::error,
            "Get file attributes of ecrypted file {%s, target {%s}} failed, error-code = %d, %m.\n",
            item.name.c_str(), toUtf8(item.target).c_str(), code(GetLastError()));
        return false;
    }
    return claimPackage(item, sizeOf(package)) || stepFailed(item, cancelled, [](int) {});
}

// The service's blocks are of the package that an earlier run made. One that begins otherwise, or
// is no longer of the file that was listed, is sent from its first block. False when the job must
// stop; what is on record then stays.
bool WebBackupStorage::claimPackage(const Item& item, uint64_t size) {
    accepted_ = noneAccepted(item.name, size);
    if (activity_->acceptedBlocks != 0) {
        bool same = false;
        if (activity_->packageSize == size && isAsListed(item.source, item.data) &&
            !countAccepted(item, same)) {
            return false;
        }
        if (!same) {
            log(LogLevel::information,
                "File {%s} does not begin as the part that was sent, it is sent from the start.\n",
                item.name.c_str());
            acceptedFile_.forget();
            progress_.backTo(0, 0);
        }
    }
    progress_.transferring(size,
                           std::min(uint64_t{activity_->acceptedBlocks} * uploadBlockSize, size));
    return true;
}

// Counts the blocks of the package that the activity record calls accepted. `same`: the package
// begins with all that the file knows of; those blocks were written down before their number was,
// so they may be more. False when the job must stop.
bool WebBackupStorage::countAccepted(const Item& item, bool& same) {
    const AcceptedBlocks known = acceptedFile_.load();
    const FileHandle package(CreateFileW(longPath(item.target).c_str(), GENERIC_READ,
                                         FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                         FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    same = package && known.count() >= activity_->acceptedBlocks;
    AcceptedBlocks begins = accepted_;
    AcceptedBlocks accepted;
    while (same && begins.count() < known.count()) {
        if (interrupted()) {
            SetLastError(ERROR_CANCELLED);
            return false;
        }
        DWORD length = 0;
        same = ReadFile(package.get(), block_.data(), uploadBlockSize, &length, nullptr) != 0 &&
               length != 0;
        begins.add(Md5::of(std::span(block_).first(length)));
        if (begins.count() == activity_->acceptedBlocks) {
            accepted = begins;
        }
    }
    same = same && begins == known;
    if (same) {
        accepted_ = accepted;
    }
    return true;
}

// The service has lost blocks that it had accepted, to a power cut, and says how many it still
// holds. False when the job must stop.
bool WebBackupStorage::goBack(const Item& item, uint64_t blocks) {
    log(LogLevel::warning,
        "The service has lost a part of file {%s}, it is sent again from {%Q}.\n",
        item.name.c_str(), blocks * uploadBlockSize);
    const FileHandle package(CreateFileW(longPath(item.target).c_str(), GENERIC_READ,
                                         FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                         FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    const AcceptedBlocks none = noneAccepted(item.name, activity_->packageSize);
    accepted_ = none;
    DWORD length = 0;
    while (accepted_.count() < blocks) {
        if (interrupted()) {
            SetLastError(ERROR_CANCELLED);
            return false;
        }
        if (!package ||
            ReadFile(package.get(), block_.data(), uploadBlockSize, &length, nullptr) == 0 ||
            length != uploadBlockSize) {
            accepted_ = none;
            break;
        }
        accepted_.add(Md5::of(block_));
    }
    progress_.backTo(accepted_.count(), uint64_t{accepted_.count()} * uploadBlockSize);
    acceptedFile_.save(accepted_);
    return true;
}

bool WebBackupStorage::send(const Item& item) {
    FileHandle package(CreateFileW(longPath(item.target).c_str(), GENERIC_READ, FILE_SHARE_READ,
                                   nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (!package) {
        return stepFailed(
            item,
            StoppedTarget("File {%s, target {%s}} backing up is cancelled when open target file "
                          "to read, offset {%Q}, error-code = %d, %m.\n"),
            [&](int error) {
                log(LogLevel::error,
                    "Open file {%s, target {%s}} to read failed, error-code = %d, "
                    "%m.\n",
                    item.name.c_str(), toUtf8(item.target).c_str(), error);
            });
    }
    LARGE_INTEGER offset;
    offset.QuadPart = static_cast<LONGLONG>(activity_->fileOffset);
    if (activity_->fileOffset != 0 &&
        SetFilePointerEx(package.get(), offset, nullptr, FILE_BEGIN) == 0) {
        return stepFailed(
            item,
            StoppedTarget("File {%s, target {%s}} backing up is cancelled when seek target file, "
                          "offset {%Q}, error-code = %d, %m.\n"),
            [&](int error) {
                log(LogLevel::error,
                    "Seek file {%s, target {%s}} to {%Q} failed, error-code = %d, "
                    "%m.\n",
                    item.name.c_str(), toUtf8(item.target).c_str(), activity_->fileOffset, error);
            });
    }
    return sendBlocks(item, package.get());
}

bool WebBackupStorage::sendBlocks(const Item& item, HANDLE package) {
    for (;;) {
        DWORD length = 0;
        if (ReadFile(package, block_.data(), uploadBlockSize, &length, nullptr) == 0) {
            return stepFailed(
                item,
                StoppedTarget("File {%s, target {%s}} backing up is cancelled when read file, "
                              "offset {%Q}, error-code = %d, %m.\n"),
                [&](int error) {
                    log(LogLevel::error,
                        "Read file {%s, target {%s}} failed, offset {%Q}, "
                        "error-code = %d, %m.\n",
                        item.name.c_str(), toUtf8(item.target).c_str(), activity_->fileOffset,
                        error);
                });
        }
        if (length == 0) {
            return true;
        }
        log(LogLevel::debug, "Uploading data {%Q} to {%Q} of file {%%}.\n", activity_->fileOffset,
            activity_->fileOffset + length);
        if (!upload_file_data(item, block_.data(), length)) {
            return stepFailed(
                item,
                StoppedTarget("File {%s, target {%s}} backing up is cancelled when upload file "
                              "data, offset {%Q}, error-code = %d, %m.\n"),
                [](int) {});
        }
        const bool saved = acceptedFile_.save(accepted_);
        progress_.accepted(saved ? accepted_.count() : 0, length);
    }
}

}  // namespace dorvo
