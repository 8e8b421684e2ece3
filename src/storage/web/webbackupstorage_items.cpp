// Where the blocks of a backup's items go: the sink's side, and the words for what fails.
#include <optional>
#include <variant>

#include "base/last_error.h"
#include "base/log.h"
#include "base/md5.h"
#include "base/text.h"
#include "http_util/http_command.h"
#include "storage/item_attributes.h"
#include "storage/web/web_exchange.h"
#include "storage/web/web_requests.h"
#include "storage/web/webbackupstorage.h"

namespace dorvo {
namespace {

// The words for a failure that is a cancellation because the job must stop. Nothing: it counts as
// itself.
std::optional<std::variant<LogText<std::string, uint64_t, int>,
                           LogText<std::string, std::string, uint64_t, int>>>
cancelledWords(SendStep step) {
    using Item = LogText<std::string, uint64_t, int>;
    using Package = LogText<std::string, std::string, uint64_t, int>;
    switch (step) {
        case SendStep::encode:
        case SendStep::compare:
            return Item(
                "File {%s} backing up is cancelled when encrypt/compress at offset {%Q}, "
                "error-code = %d, %m.\n");
        case SendStep::measure: break;
        case SendStep::announce:
            return Item(
                "File {%s} backing up is cancelled when upload file information at offset "
                "{%Q}, error-code = %d, %m.\n");
        case SendStep::goBack:
            return Item(
                "File {%s} backing up is cancelled when upload file data, offset {%Q}, "
                "error-code = %d, %m.\n");
        case SendStep::open:
            return Package(
                "File {%s, target {%s}} backing up is cancelled when open target file "
                "to read, offset {%Q}, error-code = %d, %m.\n");
        case SendStep::seek:
            return Package(
                "File {%s, target {%s}} backing up is cancelled when seek target file, "
                "offset {%Q}, error-code = %d, %m.\n");
        case SendStep::read:
            return Package(
                "File {%s, target {%s}} backing up is cancelled when read file, offset "
                "{%Q}, error-code = %d, %m.\n");
        case SendStep::put:
            return Package(
                "File {%s, target {%s}} backing up is cancelled when upload file data, "
                "offset {%Q}, error-code = %d, %m.\n");
        // A directory's: a file is through with its last block.
        case SendStep::finish:
            return Item(
                "File {%s} backing up is cancelled when upload directory data, offset "
                "{%Q}, error-code = %d, %m.\n");
    }
    return std::nullopt;
}

std::string packagePath(const SentItem& item) {
    return item.package == nullptr ? std::string() : toUtf8(item.package->path());
}

// A failed exchange has been logged already.
void logAsItself(SendStep step, const SentItem& item, uint64_t offset, DWORD error) {
    const std::string package = packagePath(item);
    SetLastError(error);
    switch (step) {
        case SendStep::encode:
            logFailed("Encrypt/compress file {%s} failed, error-code = %d, %m.\n", item.name,
                      error);
            break;
        case SendStep::measure:
            logFailed(
                "Get file attributes of ecrypted file {%s, target {%s}} failed, "
                "error-code = %d, %m.\n",
                item.name, package, error);
            break;
        case SendStep::open:
            logFailed("Open file {%s, target {%s}} to read failed, error-code = %d, %m.\n",
                      item.name, package, error);
            break;
        case SendStep::seek:
            logFailed("Seek file {%s, target {%s}} to {%Q} failed, error-code = %d, %m.\n",
                      item.name, package, offset, error);
            break;
        case SendStep::read:
            logFailed("Read file {%s, target {%s}} failed, offset {%Q}, error-code = %d, %m.\n",
                      item.name, package, offset, error);
            break;
        case SendStep::compare:
        case SendStep::announce:
        case SendStep::goBack:
        case SendStep::put:
        case SendStep::finish: break;
    }
}

}  // namespace

bool WebBackupStorage::backup(const wchar_t* path, const WIN32_FILE_ATTRIBUTE_DATA& data,
                              uint32_t number, const wchar_t* readFrom) {
    FunctionTrace trace("WebBackupStorage::backup", "webbackupstorage.cpp");
    SentItem item(path, data, number, readFrom);
    log(LogLevel::debug, "Backing up file {%s}.\n", item.name);
    beginWork();
    return sender_.send(std::move(item));
}

void WebBackupStorage::begins(SendStep step, const SentItem&) const {
    switch (step) {
        case SendStep::encode:
            log(LogLevel::debug, "%s", "File {%} is increment, start to encrypt/compress.\n");
            break;
        case SendStep::announce:
            log(LogLevel::debug, "%s",
                "File {%} is ecrypted/compressed, start to upload file information.\n");
            break;
        case SendStep::goBack:
            log(LogLevel::debug, "%s",
                "File {%} information uploaded, start to upload file data.\n");
            break;
        default: break;
    }
}

void WebBackupStorage::isThrough() const {
    log(LogLevel::debug, "%s", "Remove temporary file and return. File {%}.\n");
}

// While the job must stop every failure counts as cancelled, whatever the error is.
void WebBackupStorage::failed(SendStep step, const SentItem& item) const {
    LastErrorGuard keep;
    if (step == SendStep::encode && errorOf(keep.error()) == ERROR_CANCELLED) {
        log(LogLevel::information,
            "File {%s} backing up is cancelled when ecrypt/compress, offset {%Q}.\n", item.name,
            activity_->fileOffset);
        return;
    }
    const uint64_t offset = activity_->fileOffset;
    const auto words = cancelledWords(step);
    if (!words || !interrupted()) {
        logAsItself(step, item, offset, keep.error());
        keep.set(errorOf(keep.error()));
        return;
    }
    SetLastError(keep.error());
    if (words->index() == 0) {
        log(LogLevel::information, std::get<0>(*words), item.name, offset, keep.error());
    } else {
        log(LogLevel::information, std::get<1>(*words), item.name, packagePath(item), offset,
            keep.error());
    }
    keep.set(ERROR_CANCELLED);
}

AcceptedBlocks WebBackupStorage::noneAccepted(const SentItem& item) const {
    return AcceptedBlocks(instanceId_ + '\n' + item.name + '\n' + std::to_string(item.size));
}

void WebBackupStorage::begin(const SentItem& item) {
    accepted_ = noneAccepted(item);
}

// All or none: the package begins with all that the file knows of. Those blocks were written down
// before their number was, so they may be more than are on record.
bool WebBackupStorage::compare(const SentItem& item, uint32_t& blocks) {
    const AcceptedBlocks known = acceptedFile_.load();
    ItemPackage::Reader package = item.package->open();
    bool same = package && known.count() >= blocks;
    AcceptedBlocks begins = accepted_;
    AcceptedBlocks accepted;
    while (same && begins.count() < known.count()) {
        if (interrupted()) {
            SetLastError(ERROR_CANCELLED);
            return false;
        }
        DWORD length = 0;
        same = package.read(block_, length) && length != 0;
        begins.add(Md5::of(std::span(block_).first(length)));
        if (begins.count() == blocks) {
            accepted = begins;
        }
    }
    if (same && begins == known) {
        accepted_ = accepted;
    } else {
        blocks = 0;
    }
    return true;
}

void WebBackupStorage::giveUp(const SentItem& item) {
    log(LogLevel::information,
        "File {%s} does not begin as the part that was sent, it is sent from the start.\n",
        item.name);
    acceptedFile_.forget();
}

bool WebBackupStorage::announce(const SentItem& item, uint32_t& held) {
    FunctionTrace trace("WebBackupStorage::upload_file_info", "webbackupstorage.cpp");
    Command_To_Server<Upload_File_Request, Response_T<std::string>> command(
        "Upload File", {instanceId_, item.name, itemAttributes(item.data), item.size});
    if (!judge(run(command), command, "upload file information", item.name)) {
        return false;
    }
    if (const auto blocks = readHeldBlocks(command.response().body()); blocks && *blocks < held) {
        held = static_cast<uint32_t>(*blocks);
    }
    return true;
}

// The service has lost blocks that it had accepted, to a power cut, and says how many it still
// holds.
bool WebBackupStorage::goBack(const SentItem& item, uint32_t held) {
    log(LogLevel::warning,
        "The service has lost a part of file {%s}, it is sent again from {%Q}.\n", item.name,
        uint64_t{held} * uploadBlockSize);
    ItemPackage::Reader package = item.package->open();
    const AcceptedBlocks none = noneAccepted(item);
    accepted_ = none;
    DWORD length = 0;
    while (accepted_.count() < held) {
        if (interrupted()) {
            SetLastError(ERROR_CANCELLED);
            return false;
        }
        if (!package || !package.read(block_, length) || length != uploadBlockSize) {
            accepted_ = none;
            break;
        }
        accepted_.add(Md5::of(block_));
    }
    progress_.backTo(accepted_.count(), uint64_t{accepted_.count()} * uploadBlockSize);
    acceptedFile_.save(accepted_);
    return true;
}

// What cannot be written down is not counted, so that it is not taken for something older.
bool WebBackupStorage::put(const SentItem& item, uint32_t number, std::span<const std::byte> block,
                           uint32_t& accepted) {
    FunctionTrace trace("WebBackupStorage::upload_file_data", "webbackupstorage.cpp");
    log(LogLevel::debug, "Uploading data {%Q} to {%Q} of file {%%}.\n", activity_->fileOffset,
        activity_->fileOffset + block.size());
    const std::string md5 = Md5::of(block);
    Command_To_Server<Upload_Data_Request, Response_T<std::string>> command(
        "Upload Data", {instanceId_, item.name, md5, number, block});
    if (!judge(run(command), command, "upload file data", item.name)) {
        return false;
    }
    accepted_.add(md5);
    accepted = acceptedFile_.save(accepted_) ? accepted_.count() : 0;
    return true;
}

bool WebBackupStorage::finish(const SentItem& item) {
    return !item.directory() || !interrupted();
}

}  // namespace dorvo
