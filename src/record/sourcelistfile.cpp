#include "record/sourcelistfile.h"

#include <new>

#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"

namespace dorvo {
namespace {

using Fill = std::function<bool(JobHistorySourceWriter& writer)>;

void logWriteFailure(const std::wstring& path, DWORD error) {
    log(LogLevel::error, "Failed to write job activity source '%s', errorcode=%d, %s.\n",
        toUtf8(path), error, errorText(error));
}

DWORD lastError() {
    const DWORD error = GetLastError();
    return error != ERROR_SUCCESS ? error : DWORD{ERROR_GEN_FAILURE};
}

DWORD writeAll(JobHistorySourceWriter& writer, const std::wstring& path, const Fill& fill) {
    try {
        return writer.startSet() && fill(writer) && writer.endSet() && writer.flush()
                   ? DWORD{ERROR_SUCCESS}
                   : lastError();
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    } catch (const std::exception& error) {
        log(LogLevel::error, "Failed to generate job activity source '%s', %s.\n", toUtf8(path),
            error.what());
        return ERROR_INVALID_DATA;
    }
}

// Onto the disk and to its name.
DWORD publish(JobHistorySourceWriter& writer, const std::wstring& partial,
              const std::wstring& path) {
    if (FlushFileBuffers(writer.handle()) == 0) {
        return lastError();
    }
    writer.close();
    return MoveFileExW(longPath(partial).c_str(), longPath(path).c_str(),
                       MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0
               ? DWORD{ERROR_SUCCESS}
               : lastError();
}

}  // namespace

bool writeSourceListFile(const std::wstring& path, const Fill& fill) {
    const std::wstring partial = path + L".part";
    JobHistorySourceWriter writer;
    if (!writer.open(partial, false)) {
        return false;
    }
    DWORD error = writeAll(writer, path, fill);
    if (writer.error() != ERROR_SUCCESS) {
        logWriteFailure(partial, writer.error());
    }
    if (error == ERROR_SUCCESS) {
        error = publish(writer, partial, path);
        if (error != ERROR_SUCCESS) {
            logWriteFailure(path, error);
        }
    }
    if (error != ERROR_SUCCESS) {
        writer.close();
        DeleteFileW(longPath(partial).c_str());
        SetLastError(error);
        return false;
    }
    return true;
}

}  // namespace dorvo
