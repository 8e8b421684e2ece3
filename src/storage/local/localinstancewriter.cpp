#include "storage/local/localinstancewriter.h"

#include <algorithm>
#include <functional>

#include "base/files.h"
#include "base/md5.h"
#include "base/paths.h"
#include "base/text.h"
#include "record/jobactsrcreader.h"
#include "record/sourcerecord.h"
#include "storage/local/localerror.h"
#include "storage/local/localindexreader.h"
#include "storage/local/localrecord.h"

namespace dorvo {
namespace {

constexpr size_t pieceSize = 1 << 20;

// Only readers may have it open besides.
FileHandle openForWriting(const std::wstring& path) {
    return FileHandle(CreateFileW(longPath(path).c_str(), GENERIC_READ | GENERIC_WRITE,
                                  FILE_SHARE_READ, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                  nullptr));
}

std::span<const std::byte> magic() {
    return std::as_bytes(std::span(localIndexMagic));
}

bool encode(std::span<const LocalRecord> records, std::vector<std::byte>& bytes) {
    bytes.clear();
    const bool encoded = std::all_of(records.begin(), records.end(), [&](const LocalRecord& r) {
        return encodeLocalRecord(r, bytes);
    });
    SetLastError(ERROR_FILENAME_EXCED_RANGE);
    return encoded;
}

bool flushed(HANDLE file) {
    return FlushFileBuffers(file) != 0;
}

constexpr unsigned itemsPerPoll = 4096;

struct ListedItem {
    LocalRecord::Kind kind = LocalRecord::Kind::file;
    std::u16string path;

    bool is(const LocalRecord& record) const { return record.kind == kind && record.path == path; }
};

bool damaged() {
    SetLastError(ERROR_INVALID_DATA);
    return false;
}

bool readItem(const JobActivitySourceReader& list, uint32_t tag, ListedItem& item) {
    std::wstring path;
    WIN32_FILE_ATTRIBUTE_DATA data{};
    uint64_t number = 0;
    if (!list.entry(path, data, number)) {
        return false;
    }
    item.kind = tag == tagFile ? LocalRecord::Kind::file : LocalRecord::Kind::folder;
    item.path = localPath(path);
    return true;
}

// The items in front of the run's place, up to the first that `isThere` denies.
bool eachListed(const LocalInstanceWriter::Expected& expected, const interrupter& stop,
                const std::function<bool(const ListedItem&)>& isThere) {
    const auto place = static_cast<int64_t>(expected.position);
    JobActivitySourceReader list;
    if (place != 0 && !list.open(expected.list, 0)) {
        return false;
    }
    ListedItem item;
    int64_t offset = 0;
    for (unsigned count = 1; offset < place; ++count) {
        const uint32_t tag = list.next();
        if (tag == 0) {
            return damaged();  // it ends before the place where the run stands
        }
        if ((tag == tagFile || tag == tagDirectory) &&
            (!readItem(list, tag, item) || !isThere(item))) {
            return false;
        }
        if (count % itemsPerPoll == 0 && stop.interrupted()) {
            SetLastError(ERROR_CANCELLED);
            return false;
        }
        offset = list.offset();
        if (offset < 0) {
            return false;
        }
    }
    return offset == place || damaged();
}

}  // namespace

LocalInstanceWriter::LocalInstanceWriter(LocalPlace place, std::string id)
    : place_(std::move(place)), id_(std::move(id)), own_(localInstanceId(id_)) {}

std::unique_ptr<LocalInstanceWriter> LocalInstanceWriter::open(const LocalPlace& place,
                                                               const std::string& id,
                                                               LocalInstanceDocument& document) {
    const auto mayChange = [&] {
        if (!place.find(id, document)) {
            return false;
        }
        SetLastError(errorInstanceState);
        return document.state != LocalInstanceDocument::State::completed;
    };
    std::unique_ptr<LocalInstanceWriter> writer(new LocalInstanceWriter(place, id));
    if (!mayChange() || !place.makeInstance(id)) {
        return nullptr;
    }
    writer->packages_ = openForWriting(place.packages(id));
    if (!writer->packages_) {
        return nullptr;
    }
    writer->index_ = openForWriting(place.index(id));
    // Once more, with the others shut out.
    return writer->index_ && mayChange() ? std::move(writer) : nullptr;
}

bool LocalInstanceWriter::reset() {
    awaited_.reset();
    if (!resizeFile(index_.get(), 0) || !resizeFile(packages_.get(), 0) ||
        (DeleteFileW(longPath(place_.awaited(id_)).c_str()) == 0 &&
         GetLastError() != ERROR_FILE_NOT_FOUND)) {
        return false;
    }
    return load();
}

bool LocalInstanceWriter::load() {
    indexEnd_ = packagesEnd_ = checkedTo_ = sinceCheckpoint_ = carried_ = items_ = records_ = 0;
    uint64_t size = 0;
    if (!fileSize(index_.get(), size)) {
        return false;
    }
    if (size < magic().size()) {
        if (!resizeFile(index_.get(), 0) || !write(magic())) {
            return false;
        }
        checkedTo_ = itemsEnd_ = indexEnd_;
        return true;
    }
    LocalIndexReader reader;
    if (!reader.open(index_.get())) {
        return false;
    }
    indexEnd_ = checkedTo_ = LocalIndexReader::begin();
    LocalRecord record;
    while (reader.next(record) && record.kind != LocalRecord::Kind::failed) {
        indexEnd_ = reader.offset();
        take(record);
    }
    const DWORD ended = GetLastError();
    const bool whole = record.kind == LocalRecord::Kind::failed || ended == ERROR_HANDLE_EOF ||
                       ended == ERROR_INVALID_DATA;
    itemsEnd_ = indexEnd_;
    SetLastError(ended);
    return whole && resizeFile(index_.get(), indexEnd_);
}

// Folders are never carried over.
bool LocalInstanceWriter::isOwnItem(const LocalRecord& record) const {
    return record.kind == LocalRecord::Kind::folder ||
           (record.kind == LocalRecord::Kind::file && record.container == own_);
}

// Counts a record that stands in the index, in front of indexEnd_.
void LocalInstanceWriter::take(const LocalRecord& record) {
    ++records_;
    if (record.kind == LocalRecord::Kind::checkpoint) {
        checkedTo_ = indexEnd_;
        sinceCheckpoint_ = 0;
    } else if (!isOwnItem(record)) {
        carried_ += record.kind == LocalRecord::Kind::file ? 1 : 0;
    } else {
        ++items_;
        if (record.kind == LocalRecord::Kind::file) {
            packagesEnd_ = record.offset + record.size;
            sinceCheckpoint_ += record.size;
        }
    }
}

bool LocalInstanceWriter::countAwaited(uint64_t& count) const {
    count = 0;
    LocalIndexReader reader;
    if (!reader.open(place_.awaited(id_))) {
        return GetLastError() == ERROR_FILE_NOT_FOUND;
    }
    LocalRecord record;
    while (reader.next(record)) {
        ++count;
    }
    return GetLastError() == ERROR_HANDLE_EOF;
}

bool LocalInstanceWriter::verify(const interrupter& stop) {
    LocalIndexReader reader;
    if (!reader.open(index_.get(), indexEnd_)) {
        return false;
    }
    reader.seek(checkedTo_);
    std::vector<std::byte> piece;
    LocalRecord record;
    while (reader.next(record)) {
        if (record.kind != LocalRecord::Kind::file || record.container != own_) {
            continue;
        }
        Md5 md5;
        for (uint64_t done = 0; done < record.size; done += piece.size()) {
            if (stop.interrupted()) {
                SetLastError(ERROR_CANCELLED);
                return false;
            }
            piece.resize(static_cast<size_t>(std::min<uint64_t>(pieceSize, record.size - done)));
            if (!readFileAt(packages_.get(), record.offset + done, piece)) {
                if (GetLastError() == ERROR_HANDLE_EOF) {
                    SetLastError(ERROR_INVALID_DATA);
                }
                return false;
            }
            md5.update(piece);
        }
        if (digestBytes(md5.final()) != record.md5) {
            SetLastError(ERROR_INVALID_DATA);
            return false;
        }
    }
    return GetLastError() == ERROR_HANDLE_EOF;
}

bool LocalInstanceWriter::plan(std::span<const LocalRecord> carried,
                               std::span<const LocalRecord> awaited) {
    if (!encode(carried, bytes_) || !write(bytes_)) {
        return false;
    }
    carried_ += carried.size();
    records_ += carried.size();
    itemsEnd_ = indexEnd_;
    if (awaited.empty()) {
        return flushed(index_.get());
    }
    if (!awaited_) {
        awaited_ = openForWriting(place_.awaited(id_));
        awaitedEnd_ = magic().size();
        if (!awaited_ || !writeFileAt(awaited_.get(), 0, magic())) {
            return false;
        }
    }
    if (!encode(awaited, bytes_) || !writeFileAt(awaited_.get(), awaitedEnd_, bytes_)) {
        return false;
    }
    awaitedEnd_ += bytes_.size();
    return flushed(awaited_.get()) && flushed(index_.get());
}

bool LocalInstanceWriter::write(std::span<const std::byte> records) {
    if (torn_ && !resizeFile(index_.get(), indexEnd_)) {
        return false;
    }
    torn_ = !writeFileAt(index_.get(), indexEnd_, records);
    if (!torn_) {
        indexEnd_ += records.size();
    }
    return !torn_;
}

bool LocalInstanceWriter::append(LocalRecord record) {
    if (sinceCheckpoint_ >= checkpointInterval && !checkpoint()) {
        return false;
    }
    if (record.kind == LocalRecord::Kind::file) {
        record.container = own_;
        record.offset = packagesEnd_;
    }
    if (!encode(std::span(&record, 1), bytes_) || !write(bytes_)) {
        return false;
    }
    take(record);
    itemsEnd_ = indexEnd_;
    return true;
}

bool LocalInstanceWriter::checkpoint() {
    LocalRecord record;
    record.kind = LocalRecord::Kind::checkpoint;
    if (!flushed(packages_.get()) || !flushed(index_.get()) ||
        !encode(std::span(&record, 1), bytes_) || !write(bytes_)) {
        return false;
    }
    take(record);
    itemsEnd_ = indexEnd_;
    return true;
}

bool LocalInstanceWriter::readPackage(uint64_t offset, std::span<std::byte> bytes) const {
    return readFileAt(packages_.get(), packagesEnd_ + offset, bytes);
}

bool LocalInstanceWriter::writePackage(uint64_t offset, std::span<const std::byte> bytes) {
    return writeFileAt(packages_.get(), packagesEnd_ + offset, bytes);
}

bool LocalInstanceWriter::finish(std::span<const LocalRecord> failed) {
    // An end that failed half-way may be tried again.
    if (indexEnd_ != itemsEnd_) {
        if (!resizeFile(index_.get(), itemsEnd_)) {
            return false;
        }
        indexEnd_ = itemsEnd_;
        records_ -= failedRecords_;
        failedRecords_ = 0;
    }
    if (!encode(failed, bytes_) || !write(bytes_)) {
        return false;
    }
    failedRecords_ = failed.size();
    records_ += failedRecords_;
    uint64_t size = 0;
    if (!fileSize(packages_.get(), size)) {
        return false;
    }
    if (size < packagesEnd_) {
        SetLastError(ERROR_INVALID_DATA);
        return false;
    }
    return resizeFile(packages_.get(), packagesEnd_) && flushed(packages_.get()) &&
           flushed(index_.get());
}

bool LocalInstanceWriter::keepItems(const Expected& expected, const interrupter& stop) {
    LocalIndexReader index;
    if (!index.open(index_.get(), indexEnd_)) {
        return false;
    }
    LocalRecord stored;
    uint64_t begin = 0;  // of the record in the index; its end when there is no other item
    const auto nextStored = [&] {
        do {
            begin = index.offset();
            if (!index.next(stored)) {
                return GetLastError() == ERROR_HANDLE_EOF;
            }
        } while (!isOwnItem(stored));
        return true;
    };
    const auto isThere = [&](const ListedItem& item) {
        if (begin < indexEnd_ && item.is(stored)) {
            return nextStored();
        }
        return expected.failed->contains(toUtf8(widePath(item.path))) || damaged();
    };
    if (!nextStored() || !eachListed(expected, stop, isThere)) {
        return false;
    }
    return begin == indexEnd_ || (resizeFile(index_.get(), begin) && load());
}

}  // namespace dorvo
