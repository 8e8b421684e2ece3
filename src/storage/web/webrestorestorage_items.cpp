// Where the packages of a restore's files come from: the source's side, and the words for what
// fails.
#include <optional>
#include <variant>

#include "base/last_error.h"
#include "base/local_time.h"
#include "base/log.h"
#include "base/text.h"
#include "httpmsg/http_names.h"
#include "storage/item_attributes.h"
#include "storage/web/web_exchange.h"
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

// The bytes of the block that a download's body holds behind the text of their MD5, which is not
// compared. `announced` is the length that the answer promised. False with `malformedBlock` when
// the body is not as long as promised or holds no MD5.
bool blockOf(std::span<const std::byte> body, uint64_t announced, const std::string& name,
             uint64_t offset, std::span<const std::byte>& block) {
    const uint64_t size = body.size();
    if (size != announced) {
        return logFailed(
            malformedBlock,
            "Failed to download file data, file {%s}, offset {%Q}, the size of data {size: %Q} "
            "readed is not as large as \"Content-Length\" {Content-Length: %Q}.\n",
            name, offset, size, announced);
    }
    if (size < md5TextSize) {
        return logFailed(
            malformedBlock,
            "Failed to download file data, file {%s}, offset {%Q}, the size of data {size: %Q} "
            "is small than the MD5 size {32 bytes}.\n",
            name, offset, size);
    }
    block = body.subspan(md5TextSize);
    return true;
}

// The words for a stop: they take the file's name, and most the offset. Nothing: the step heeds
// none.
std::optional<std::variant<LogText<std::string, uint64_t>, LogText<std::string>>> cancelledWords(
    FetchStep step) {
    using At = LogText<std::string, uint64_t>;
    using Plain = LogText<std::string>;
    switch (step) {
        case FetchStep::next:
        case FetchStep::room:
        case FetchStep::place: return At("Restoring file {%s} is cancelled, at offset {%Q}.\n");
        case FetchStep::parents:
            return At(
                "Restoring file {%s} is cancelled when create parents directories, offset "
                "{%Q}}.\n");
        case FetchStep::find:
            return At(
                "Restoring file {%s} is cancelled when download file information, offset "
                "{%Q}.\n");
        case FetchStep::open:
            return At(
                "Restoring file {%s} is cancelled when create file to write, offset "
                "{%Q}.\n");
        case FetchStep::block:
            return At("Restoring file {%s} is cancelled when download file data, offset {%Q}.\n");
        case FetchStep::toDecode:
            return Plain("Restoring is cancelled when going to decrypt/decompress file {%s}.\n");
        case FetchStep::decode:
            return Plain("Restoring is cancelled when decrypt/decompress file {%s}.\n");
        case FetchStep::attributes:
        case FetchStep::openToSetTimes:
        case FetchStep::times: break;
    }
    return std::nullopt;
}

void logAsItself(FetchStep step, const FetchedItem& item, uint64_t offset, DWORD error) {
    const std::string package = toUtf8(item.package);
    SetLastError(error);
    switch (step) {
        case FetchStep::parents:
            logFailed("Create parent directories of file {%s, target {%s}} failed, %d, %m.\n",
                      item.name, item.place, error);
            break;
        case FetchStep::find:
            logFailed(
                "Download file information failed, file {%s}, at offset {%Q}, "
                "error-code = %d, %m.\n",
                item.name, offset, error);
            break;
        case FetchStep::room:
            logFailed(
                "There is no room for file {%s}, whose package has %Q bytes and whose "
                "content %Q, error-code = %d, %m.\n",
                item.place, item.size - offset, sizeOf(item.data), error);
            break;
        case FetchStep::open:
            logFailed(
                "Failed to create file {%s, target {%s}} to write, offset {%Q}, "
                "error-code = %d, %m.\n",
                item.name, package, offset, error);
            break;
        case FetchStep::block:
            logFailed("Failed to download file {%s}, offset {%Q}, error-code = %d, %m.\n",
                      item.name, offset, error);
            break;
        case FetchStep::decode:
            logFailed(
                "Decrypt/Decompress file {original {%s}, target {%s}, new {%s}} failed, "
                "error-code = %d, %m.\n",
                item.name, package, item.place, error);
            break;
        case FetchStep::attributes:
            logFailed("Set file {%s} attributes failed, error-code = %d, %m.\n", item.place, error);
            break;
        case FetchStep::openToSetTimes:
            logFailed("Failed to open file {%s} to set time, error-code = %d, %m.\n", item.place,
                      error);
            break;
        case FetchStep::times:
            logFailed("Set file {%s} time failed, error-code = %d, %m.\n", item.place, error);
            break;
        case FetchStep::place:
            logFailed("Failed to put file {%s} in its place {%s}, error-code = %d, %m.\n",
                      item.name, item.place, error);
            break;
        case FetchStep::next:
        case FetchStep::toDecode: break;
    }
}

}  // namespace

bool WebRestoreStorage::restoreFile(const wchar_t* original, const wchar_t* target, uint32_t number,
                                    bool replace) {
    FunctionTrace trace("WebRestoreStorage::restoreFile", "webrestorestorage.cpp");
    const std::wstring from = original == nullptr ? std::wstring() : original;
    const std::wstring to = target == nullptr ? std::wstring() : target;
    if (!valid(toUtf8(from), toUtf8(to))) {
        return false;
    }
    FetchedItem item(task_, from, to, number, temporary_);
    stored_ = storedPath(task_.from.machine, backupId_, item.name);
    log(LogLevel::debug, "Restoring file {%s}, job {%s, %s}.\n", item.name, task_.jobId,
        task_.jobName);
    log(LogLevel::debug, "Restoring file {%s} to {%s}.\n", item.name, item.place);
    beginWork();
    return fetcher_.fetch(item, replace);
}

// While the job must stop every failure counts as cancelled, whatever the error is.
void WebRestoreStorage::failed(FetchStep step, const FetchedItem& item) const {
    LastErrorGuard keep;
    const uint64_t offset = activity_->fileOffset;
    const auto words = cancelledWords(step);
    if (!words || !interrupted()) {
        logAsItself(step, item, offset, keep.error());
        keep.set(errorOf(keep.error()));
        return;
    }
    if (words->index() == 0) {
        log(LogLevel::information, std::get<0>(*words), item.name, offset);
    } else {
        log(LogLevel::information, std::get<1>(*words), item.name);
    }
    keep.set(ERROR_CANCELLED);
}

bool WebRestoreStorage::find(FetchedItem& item) {
    StoredItem stored;
    if (!get_file_info(stored_, false, stored)) {
        return false;
    }
    item.data = fileAttributes(stored.attributes);
    item.size = stored.packageSize;
    item.compressed = stored.compressed;
    return true;
}

bool WebRestoreStorage::begin(const FetchedItem&, HANDLE package, uint64_t& kept) {
    if (kept != 0 && !isWrittenSinceBoot(package)) {
        log(LogLevel::information, "Temporary file is of another start of the machine.\n");
        kept = 0;
    }
    return true;
}

bool WebRestoreStorage::get(const FetchedItem& item, uint64_t offset,
                            std::span<const std::byte>& block) {
    FunctionTrace trace("WebRestoreStorage::download_block", "webrestorestorage.cpp");
    download_.request() = {stored_, offset / uploadBlockSize + 1};
    download_.state(HTTP_Command::READY);
    switch (judge(run(download_), download_)) {
        case Exchanged::done: break;
        case Exchanged::broken:
            return logFailed(
                "Download file data failed, file {%s}, offset {%Q},, error-code = %d, %m.\n",
                item.name, offset, GetLastError());
        case Exchanged::refused: {
            const int status = download_.response().status();
            return logFailed(
                "Download file data failed, file {%s}, offset {%Q}, error-code = %d, %s.\n",
                item.name, offset, status, http_status_string(status));
        }
    }
    const Download_Data_Type& body = download_.response().body();
    *progress_.wire() += body.size();
    return blockOf(std::as_bytes(std::span(body.data(), body.size())),
                   download_.response().content_length(), item.name, offset, block);
}

}  // namespace dorvo
