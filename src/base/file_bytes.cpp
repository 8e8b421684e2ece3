#include "base/file_bytes.h"

#include "base/paths.h"

namespace dorvo {
namespace {

bool seek(HANDLE file, uint64_t offset) {
    LARGE_INTEGER place;
    place.QuadPart = static_cast<LONGLONG>(offset);
    return SetFilePointerEx(file, place, nullptr, FILE_BEGIN) != 0;
}

}  // namespace

FileHandle openToChange(const std::wstring& path) {
    if (!createDirectories(path.substr(0, path.rfind(L'\\')))) {
        return {};
    }
    return FileHandle(CreateFileW(longPath(path).c_str(), GENERIC_READ | GENERIC_WRITE,
                                  FILE_SHARE_READ, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                  nullptr));
}

bool fileSize(HANDLE file, uint64_t& size) {
    LARGE_INTEGER value;
    if (GetFileSizeEx(file, &value) == 0) {
        return false;
    }
    size = static_cast<uint64_t>(value.QuadPart);
    return true;
}

bool readFileAt(HANDLE file, uint64_t offset, std::span<std::byte> bytes) {
    if (!seek(file, offset)) {
        return false;
    }
    while (!bytes.empty()) {
        DWORD count = 0;
        if (ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr) == 0) {
            return false;
        }
        if (count == 0) {
            SetLastError(ERROR_HANDLE_EOF);
            return false;
        }
        bytes = bytes.subspan(count);
    }
    return true;
}

bool writeFileAt(HANDLE file, uint64_t offset, std::span<const std::byte> bytes) {
    DWORD count = 0;
    if (!seek(file, offset) ||
        WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr) == 0) {
        return false;
    }
    if (count == bytes.size()) {
        return true;
    }
    SetLastError(ERROR_DISK_FULL);
    return false;
}

bool resizeFile(HANDLE file, uint64_t size) {
    return seek(file, size) && SetEndOfFile(file) != 0;
}

}  // namespace dorvo
