#include "record/jobactsrcwriter.h"

#include <new>

#include "base/files.h"
#include "base/last_error.h"
#include "base/local_time.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "record/sourcerecord.h"

namespace dorvo {
namespace {

static_assert(sizeof(wchar_t) == sizeof(char16_t));

std::u16string toUnits(const std::wstring& text) {
    return {text.begin(), text.end()};
}

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

bool JobHistorySourceWriter::open(const std::wstring& path, bool append) {
    close();
    FileHandle file(CreateFileW(longPath(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                append ? OPEN_EXISTING : CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                nullptr));
    if (!file) {
        return logFailed("Failed to open job activity source '%s', errorcode=%d, %s.\n",
                         toUtf8(path), GetLastError(), errorText(GetLastError()));
    }
    if (append) {
        // A list that could be opened this way exists already; an empty one is none to go on with.
        SetLastError(ERROR_ALREADY_EXISTS);
        LARGE_INTEGER end{};
        if (SetFilePointerEx(file.get(), {}, &end, FILE_END) == 0 || end.QuadPart == 0) {
            return logFailed("Failed to seek job activity source '%s' to the end, hr=%d, %s.\n",
                             toUtf8(path), HRESULT_FROM_WIN32(GetLastError()),
                             errorText(GetLastError()));
        }
    }
    attach(std::move(file));
    return true;
}

bool JobHistorySourceWriter::startSet() {
    return put(encodeSetStart());
}

bool JobHistorySourceWriter::endSet() {
    return put(encodeSetEnd());
}

bool JobHistorySourceWriter::addVolume(const std::wstring& name) {
    const auto record = encodeVolume(toUnits(name));
    if (!record) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return false;
    }
    return put(*record);
}

bool JobHistorySourceWriter::addEntry(const std::wstring& name,
                                      const WIN32_FILE_ATTRIBUTE_DATA& data, uint64_t value) {
    SourceEntry entry;
    entry.attributes = data.dwFileAttributes;
    entry.creationTime = toTicks(data.ftCreationTime);
    entry.lastAccessTime = toTicks(data.ftLastAccessTime);
    entry.lastWriteTime = toTicks(data.ftLastWriteTime);
    entry.size = sizeOf(data);
    entry.value = value;
    entry.name = toUnits(name);
    const auto record = encodeEntry(entry);
    if (!record) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return false;
    }
    return put(*record);
}

bool JobHistorySourceWriter::fits(const std::wstring& name) {
    return name.size() <= longestEntryName && name.find(L'\0') == std::wstring::npos;
}

bool JobHistorySourceWriter::put(std::span<const std::byte> record) {
    const auto size = static_cast<std::streamsize>(record.size());
    if (sputn(reinterpret_cast<const char*>(record.data()), size) == size) {
        return true;
    }
    SetLastError(error() != ERROR_SUCCESS ? error() : DWORD{ERROR_INVALID_HANDLE});
    return false;
}

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
