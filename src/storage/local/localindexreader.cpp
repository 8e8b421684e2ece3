#include "storage/local/localindexreader.h"

#include <algorithm>
#include <cstring>

#include "base/files.h"
#include "base/paths.h"

namespace dorvo {
namespace {

constexpr size_t windowSize = size_t{64} * 1024;

bool damaged() {
    SetLastError(ERROR_INVALID_DATA);
    return false;
}

constexpr unsigned recordsPerPoll = 4096;

}  // namespace

bool LocalIndexReader::open(const std::wstring& path, uint64_t size) {
    // The run that makes the index may have it open.
    own_.reset(CreateFileW(longPath(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                           nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    return own_ && open(own_.get(), size);
}

bool LocalIndexReader::open(HANDLE file, uint64_t size) {
    file_ = file;
    offset_ = 0;
    buffer_.clear();
    if (!fileSize(file, size_)) {
        return false;
    }
    if (size != wholeFile && size > size_) {
        return damaged();
    }
    size_ = std::min(size, size_);
    std::span<const std::byte> bytes;
    if (!have(localIndexMagic.size(), bytes)) {
        return false;
    }
    offset_ = begin();
    return (bytes.size() == localIndexMagic.size() &&
            std::memcmp(bytes.data(), localIndexMagic.data(), bytes.size()) == 0) ||
           damaged();
}

bool LocalIndexReader::next(LocalRecord& record) {
    if (offset_ >= size_) {
        SetLastError(ERROR_HANDLE_EOF);
        return false;
    }
    std::span<const std::byte> bytes;
    if (!have(sizeof(uint32_t), bytes)) {
        return false;
    }
    const auto length = localRecordSize(bytes);
    if (!length) {
        return damaged();
    }
    if (!have(*length, bytes)) {
        return false;
    }
    auto decoded = decodeLocalRecord(bytes);
    if (!decoded) {
        return damaged();
    }
    record = std::move(*decoded);
    offset_ += *length;
    return true;
}

bool LocalIndexReader::have(size_t count, std::span<const std::byte>& bytes) {
    count = static_cast<size_t>(std::min<uint64_t>(count, size_ - std::min(offset_, size_)));
    const bool there = offset_ >= bufferAt_ && offset_ - bufferAt_ <= buffer_.size() &&
                       count <= buffer_.size() - (offset_ - bufferAt_);
    if (!there) {
        const uint64_t left = size_ - offset_;
        buffer_.resize(static_cast<size_t>(std::min<uint64_t>(std::max(count, windowSize), left)));
        bufferAt_ = offset_;
        if (!readFileAt(file_, offset_, buffer_)) {
            buffer_.clear();
            return false;
        }
    }
    bytes = std::span(buffer_).subspan(static_cast<size_t>(offset_ - bufferAt_), count);
    return true;
}

bool LocalIndexCursor::find(std::u16string_view path, LocalRecord::Kind kind, LocalRecord& record) {
    const uint64_t from = reader_.offset();
    if (scan(LocalIndexReader::wholeFile, path, kind, record)) {
        return true;
    }
    if (GetLastError() != ERROR_HANDLE_EOF) {
        return false;
    }
    reader_.seek(LocalIndexReader::begin());
    if (scan(from, path, kind, record)) {
        return true;
    }
    if (GetLastError() == ERROR_HANDLE_EOF) {
        SetLastError(ERROR_FILE_NOT_FOUND);
    }
    return false;
}

bool LocalIndexCursor::scan(uint64_t end, std::u16string_view path, LocalRecord::Kind kind,
                            LocalRecord& record) {
    for (unsigned count = 1; reader_.offset() < end; ++count) {
        if (!reader_.next(record)) {
            return false;
        }
        if (record.kind == kind && record.path == path) {
            return true;
        }
        if (count % recordsPerPoll == 0 && stop_ != nullptr && stop_->interrupted()) {
            SetLastError(ERROR_CANCELLED);
            return false;
        }
    }
    SetLastError(ERROR_HANDLE_EOF);
    return false;
}

}  // namespace dorvo
