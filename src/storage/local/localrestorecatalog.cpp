#include "storage/local/localrestorecatalog.h"

#include <charconv>

#include "base/log.h"
#include "base/text.h"
#include "storage/item_attributes.h"
#include "storage/local/localerror.h"
#include "storage/local/localindexreader.h"
#include "storage/local/localrecord.h"

namespace dorvo {
namespace {

constexpr unsigned recordsPerPoll = 4096;

// A place in the listing: the folders of the index are gone through first, then its files.
struct Place {
    LocalRecord::Kind kind = LocalRecord::Kind::folder;
    uint64_t offset = LocalIndexReader::begin();
};

constexpr char folderMark = 'd';
constexpr char fileMark = 'f';

std::string textOf(const Place& place) {
    return (place.kind == LocalRecord::Kind::folder ? folderMark : fileMark) +
           std::to_string(place.offset);
}

bool readPlace(const std::string& text, Place& place) {
    if (text.empty()) {
        return true;
    }
    place.kind = text[0] == folderMark ? LocalRecord::Kind::folder : LocalRecord::Kind::file;
    const char* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data() + 1, end, place.offset);
    return (text[0] == folderMark || text[0] == fileMark) && read.ec == std::errc() &&
           read.ptr == end && place.offset >= LocalIndexReader::begin();
}

bool isBelow(std::u16string_view path, std::u16string_view root) {
    return root.empty() || path == root ||
           (path.size() > root.size() && path.starts_with(root) && path[root.size()] == u'\\');
}

}  // namespace

LocalRestoreCatalog::LocalRestoreCatalog(LocalPlace place, std::string instanceId, HANDLE stop)
    : place_(std::move(place)), instanceId_(std::move(instanceId)), stop_(stop) {}

LocalRestoreCatalog::~LocalRestoreCatalog() = default;

bool LocalRestoreCatalog::list(const std::wstring& path, const std::string& after, Page& page) {
    // What is asked for may be the former page's own.
    const std::string begin = after;  // NOLINT(performance-unnecessary-copy-initialization)
    page = {};
    if (!place_.checkToRead()) {
        return false;
    }
    if ((index_ || open()) && read(path, begin, page)) {
        return true;
    }
    failedIn(place_.location());
    page = {};
    return logFailure("list the items of backup", instanceId_);
}

bool LocalRestoreCatalog::open() {
    LocalInstanceDocument document;
    auto index = std::make_unique<LocalIndexReader>();
    if (!place_.loadCompleted(instanceId_, document) ||
        !index->open(place_.index(instanceId_), document.indexSize)) {
        return false;
    }
    index_ = std::move(index);
    return true;
}

bool LocalRestoreCatalog::read(const std::wstring& path, const std::string& after, Page& page) {
    Place place;
    if (!readPlace(after, place)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    const std::u16string root = localPath(path);
    index_->seek(place.offset);
    LocalRecord record;
    for (unsigned count = 1;; ++count) {
        if (count % recordsPerPoll == 0 && stop_.interrupted()) {
            SetLastError(ERROR_CANCELLED);
            return false;
        }
        place.offset = index_->offset();
        if (!index_->next(record)) {
            if (GetLastError() != ERROR_HANDLE_EOF) {
                return false;
            }
            if (place.kind == LocalRecord::Kind::file) {
                return true;
            }
            place.kind = LocalRecord::Kind::file;
            index_->seek(LocalIndexReader::begin());
            continue;
        }
        if (record.kind != place.kind || !isBelow(record.path, root)) {
            continue;
        }
        if (page.items.size() == pageLimit) {
            page.next = textOf(place);
            return true;
        }
        page.items.push_back({widePath(record.path), fileAttributes(record.attributes)});
    }
}

}  // namespace dorvo
