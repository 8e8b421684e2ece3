#include "record/jobactsrcwriter.h"

#include "base/files.h"
#include "base/last_error.h"
#include "base/local_time.h"
#include "base/log.h"
#include "base/text.h"
#include "record/sourcerecord.h"

namespace dorvo {
namespace {

static_assert(sizeof(wchar_t) == sizeof(char16_t));

std::u16string toUnits(const std::wstring& text) {
    return {text.begin(), text.end()};
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

}  // namespace dorvo
