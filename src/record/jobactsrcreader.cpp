#include "record/jobactsrcreader.h"

#include <optional>

#include "base/last_error.h"
#include "base/local_time.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"

namespace dorvo {
namespace {

// The words are the log's own for any failure to read.
void logReadFailure(DWORD error) {
    LastErrorGuard keep;
    keep.set(error);
    log(LogLevel::error, "Failed to read job activity source offset, hr=%d, %s.\n",
        HRESULT_FROM_WIN32(error), errorText(error));
}

// Reads up to `size` bytes; fewer at the end of the file. The bytes read, or nothing with the last
// error.
std::optional<DWORD> readSome(HANDLE file, std::byte* target, size_t size) {
    DWORD read = 0;
    if (ReadFile(file, target, static_cast<DWORD>(size), &read, nullptr) == 0) {
        return std::nullopt;
    }
    return read;
}

std::wstring fromUnits(const std::u16string& text) {
    return {text.begin(), text.end()};
}

bool damaged() {
    SetLastError(ERROR_INVALID_DATA);
    return false;
}

}  // namespace

bool JobActivitySourceReader::open(const std::wstring& path, int64_t offset) {
    record_.clear();
    file_.reset(CreateFileW(longPath(path).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file_) {
        return logFailed("Failed to open job activity source '%s', hr=%d, %s.\n", toUtf8(path),
                         HRESULT_FROM_WIN32(GetLastError()), errorText(GetLastError()));
    }
    LARGE_INTEGER distance;
    distance.QuadPart = offset;
    if (offset > 0 && SetFilePointerEx(file_.get(), distance, nullptr, FILE_BEGIN) == 0) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to seek job activity source '%s', hr=%d, %s.\n", toUtf8(path),
            HRESULT_FROM_WIN32(keep.error()), errorText(keep.error()));
        file_.reset();
        return false;
    }
    return true;
}

bool JobActivitySourceReader::seek(int64_t offset) {
    LARGE_INTEGER distance;
    distance.QuadPart = offset;
    if (SetFilePointerEx(file_.get(), distance, nullptr, FILE_BEGIN) == 0) {
        return logFailed("Failed to seek job activity source to %Q, hr=%d, %s.\n", offset,
                         HRESULT_FROM_WIN32(GetLastError()), errorText(GetLastError()));
    }
    return true;
}

uint32_t JobActivitySourceReader::next() {
    record_.resize(sourceHeadSize);
    const auto headRead = readSome(file_.get(), record_.data(), sourceHeadSize);
    if (!headRead) {
        if (const DWORD error = GetLastError(); error != ERROR_HANDLE_EOF) {
            logReadFailure(error);
        }
        record_.clear();
        return 0;
    }
    if (*headRead < sourceHeadSize) {
        record_.clear();
        return 0;
    }
    const SourceHead head = *decodeSourceHead(record_);
    if (head.size < sourceHeadSize) {
        logReadFailure(ERROR_INVALID_DATA);
        record_.clear();
        return 0;
    }
    const size_t rest = head.size - sourceHeadSize;
    record_.resize(head.size);
    const auto read = readSome(file_.get(), record_.data() + sourceHeadSize, rest);
    if (read && *read == rest) {
        return head.tag;
    }
    if (read) {
        logReadFailure(ERROR_HANDLE_EOF);
    } else if (const DWORD error = GetLastError(); error != ERROR_SUCCESS) {
        logReadFailure(error);
    }
    record_.clear();
    return 0;
}

int64_t JobActivitySourceReader::offset() const {
    LARGE_INTEGER position{};
    if (SetFilePointerEx(file_.get(), {}, &position, FILE_CURRENT) == 0) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to get job activity source offset, hr=%d, %s.\n",
            HRESULT_FROM_WIN32(keep.error()), errorText(keep.error()));
        return -1;
    }
    return position.QuadPart;
}

bool JobActivitySourceReader::volume(std::wstring& name) const {
    const auto decoded = decodeVolume(record_);
    if (!decoded) {
        return damaged();
    }
    name = fromUnits(*decoded);
    return true;
}

bool JobActivitySourceReader::entry(std::wstring& path, WIN32_FILE_ATTRIBUTE_DATA& data,
                                    uint64_t& value) const {
    const auto decoded = decodeEntry(record_);
    if (!decoded) {
        return damaged();
    }
    path = fromUnits(decoded->name);
    data.dwFileAttributes = decoded->attributes;
    data.ftCreationTime = toFileTime(decoded->creationTime);
    data.ftLastAccessTime = toFileTime(decoded->lastAccessTime);
    data.ftLastWriteTime = toFileTime(decoded->lastWriteTime);
    data.nFileSizeHigh = static_cast<DWORD>(decoded->size >> 32);
    data.nFileSizeLow = static_cast<DWORD>(decoded->size);
    value = decoded->value;
    return true;
}

}  // namespace dorvo
