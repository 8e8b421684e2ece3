#include "storage/local/localindexcursor.h"

namespace dorvo {
namespace {

constexpr unsigned recordsPerPoll = 4096;

}  // namespace

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
