#include "storage/placingrecord.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <span>

#include "base/files.h"
#include "base/last_error.h"
#include "base/local_time.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/uuid.h"
#include "json_spirit/json_spirit.h"
#include "settings/jsonstorage.h"
#include "storage/restoresibling.h"

namespace dorvo {
namespace {

using Values = std::map<std::string, json_spirit::Value>;

constexpr char runKey[] = "run";
constexpr char itemKey[] = "item";
constexpr char siblingKey[] = "sibling";
constexpr char targetKey[] = "target";
constexpr char volumeKey[] = "volume";
constexpr char indexKey[] = "index";
constexpr char sizeKey[] = "size";
constexpr char writtenKey[] = "written";

// What some servers and drivers give as the index of every file, and what stands for one that does
// not fit into 64 bits.
constexpr uint64_t noIndexes[] = {0, ~uint64_t{0}};

// Keeps a sweep away from records that are being opened: what it deletes is nobody's.
std::mutex openLock;

std::wstring recordFolder() {
    std::wstring path;
    return dataDirectory(path) ? path + L"\\restoring" : std::wstring();
}

// Empty for an id that names no job.
std::wstring recordPath(const std::string& jobId) {
    const std::wstring folder = recordFolder();
    return folder.empty() || !isJobId(jobId) ? std::wstring() : folder + L"\\" + toWide(jobId);
}

std::string textOf(const Values& values, const char* key) {
    const auto found = values.find(key);
    return found == values.end() || found->second.type() != json_spirit::str_type
               ? std::string()
               : found->second.get_str();
}

uint64_t numberOf(const Values& values, const char* key) {
    const auto found = values.find(key);
    const bool number = found != values.end() && found->second.type() == json_spirit::int_type &&
                        (found->second.is_uint64() || found->second.get_int64() >= 0);
    return number ? found->second.get_uint64() : 0;
}

bool isOpen(const std::wstring& path) {
    const FileHandle file(CreateFileW(longPath(path).c_str(), GENERIC_READ | GENERIC_WRITE, 0,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    return !file;
}

std::wstring folderOf(const std::wstring& path) {
    return path.substr(0, path.find_last_of(L'\\') + 1);
}

}  // namespace

PlacingRecord::PlacingRecord(const std::string& jobId, Look look)
    : path_(recordPath(jobId)), look_(look) {
    content_ = read(path_);
    unsettled_ = !content_.sibling.empty();
}

PlacingRecord::Content PlacingRecord::read(const std::wstring& path) {
    Content content;
    JSONObjectStorage document;
    GUID run{};
    if (path.empty() || !document.load(toUtf8(path).c_str()) ||
        !uuidFromText(textOf(document.values(), runKey), run)) {
        return content;
    }
    const auto& values = document.values();
    std::memcpy(content.run.data(), &run, content.run.size());
    content.item = static_cast<uint32_t>(numberOf(values, itemKey));
    content.sibling = toWide(textOf(values, siblingKey));
    content.target = toWide(textOf(values, targetKey));
    content.identity = {numberOf(values, volumeKey), numberOf(values, indexKey),
                        numberOf(values, sizeKey), numberOf(values, writtenKey)};
    return content;
}

bool PlacingRecord::openFile() {
    const std::lock_guard guard(openLock);
    if (path_.empty()) {
        SetLastError(ERROR_INVALID_NAME);
        return false;
    }
    file_ = openToChange(path_);
    if (file_ && fileSize(file_.get(), length_)) {
        return true;
    }
    file_.reset();
    return false;
}

// In one write, and filled up with blanks to what was there: a process that is killed leaves the
// old text or the new one.
bool PlacingRecord::write() {
    json_spirit::Object object{{runKey, uuidText(content_.run)},
                               {itemKey, content_.item},
                               {siblingKey, toUtf8(content_.sibling)}};
    if (!content_.target.empty()) {
        object[targetKey] = toUtf8(content_.target);
        object[volumeKey] = content_.identity.volume;
        object[indexKey] = content_.identity.index;
        object[sizeKey] = content_.identity.size;
        object[writtenKey] = content_.identity.written;
    }
    std::string text = json_spirit::write(json_spirit::Value(object)) + "\n";
    text.resize(std::max<size_t>(text.size(), length_), ' ');
    if (!writeFileAt(file_.get(), 0, std::as_bytes(std::span(text)))) {
        return false;
    }
    length_ = text.size();
    return true;
}

bool PlacingRecord::announce(const Run& run, uint32_t item, const std::wstring& sibling) {
    if (!file_ && !openFile()) {
        return false;
    }
    content_ = {run, item, sibling, {}, {}};
    if (!write()) {
        return false;
    }
    const std::wstring folder = folderOf(sibling);
    if (flushedFolder_ != folder) {
        if (FlushFileBuffers(file_.get()) == 0) {
            return false;
        }
        flushedFolder_ = folder;
    }
    unsettled_ = true;
    return true;
}

bool PlacingRecord::choose(const std::wstring& target, HANDLE sibling) {
    if (!identify(sibling, content_.identity)) {
        return true;
    }
    content_.target = target;
    return write();
}

bool PlacingRecord::identify(HANDLE file, Identity& identity) const {
    BY_HANDLE_FILE_INFORMATION found{};
    if (look_(file, &found) == 0) {
        return false;
    }
    identity = {found.dwVolumeSerialNumber,
                uint64_t{found.nFileIndexHigh} << 32 | found.nFileIndexLow, sizeOf(found),
                toTicks(found.ftLastWriteTime)};
    return std::find(std::begin(noIndexes), std::end(noIndexes), identity.index) ==
           std::end(noIndexes);
}

bool PlacingRecord::isPlaced(const Run& run, uint32_t item) const {
    if (content_.target.empty() || content_.item != item || content_.run != run) {
        return false;
    }
    const FileHandle file(
        CreateFileW(longPath(content_.target).c_str(), FILE_READ_ATTRIBUTES,
                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                    FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    Identity found;
    return file && identify(file.get(), found) && found == content_.identity;
}

bool PlacingRecord::removeSibling() {
    if (!unsettled_) {
        return true;
    }
    if (!removeSiblings(content_.sibling)) {
        LastErrorGuard keep;
        log(LogLevel::warning, "Failed to delete temporary file {%s}, error-code = %d, %m.\n",
            toUtf8(content_.sibling), keep.error());
        return false;
    }
    unsettled_ = false;
    return true;
}

void PlacingRecord::finish() {
    const bool removed = removeSibling();
    file_.reset();
    flushedFolder_.clear();
    if (removed) {
        DeleteFileW(longPath(path_).c_str());
    } else {
        // Aside, where the job's next run does not write over it; no job has such an id.
        MoveFileExW(longPath(path_).c_str(),
                    longPath(path_ + L"~" + toWide(uuidText(content_.run))).c_str(),
                    MOVEFILE_REPLACE_EXISTING);
    }
    content_ = {};
    unsettled_ = false;
}

void PlacingRecord::sweep() {
    const std::lock_guard guard(openLock);
    const std::wstring folder = recordFolder() + L"\\";
    WIN32_FIND_DATAW entry{};
    const FindHandle search(FindFirstFileW(longPath(folder + L"*").c_str(), &entry));
    if (!search) {
        return;
    }
    do {
        const std::wstring path = folder + entry.cFileName;
        if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 || isOpen(path) ||
            !removeSiblings(read(path).sibling)) {
            continue;
        }
        // That of a job's paused run still tells what it has placed.
        std::wstring job;
        const bool paused = jobDirectory(toUtf8(entry.cFileName), job) &&
                            GetFileAttributesW(longPath(job).c_str()) != INVALID_FILE_ATTRIBUTES;
        if (!paused) {
            DeleteFileW(longPath(path).c_str());
        }
    } while (FindNextFileW(search.get(), &entry) != 0);
}

}  // namespace dorvo
