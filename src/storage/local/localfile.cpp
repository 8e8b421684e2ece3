#include "storage/local/localfile.h"

namespace dorvo {
namespace {

bool seek(HANDLE file, uint64_t offset) {
    LARGE_INTEGER place;
    place.QuadPart = static_cast<LONGLONG>(offset);
    return SetFilePointerEx(file, place, nullptr, FILE_BEGIN) != 0;
}

}  // namespace

bool localFileSize(HANDLE file, uint64_t& size) {
    LARGE_INTEGER value;
    if (GetFileSizeEx(file, &value) == 0) {
        return false;
    }
    size = static_cast<uint64_t>(value.QuadPart);
    return true;
}

bool readLocalFile(HANDLE file, uint64_t offset, std::span<std::byte> bytes) {
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

bool writeLocalFile(HANDLE file, uint64_t offset, std::span<const std::byte> bytes) {
    DWORD count = 0;
    if (!seek(file, offset) ||
        WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr) == 0) {
        return false;
    }
    SetLastError(ERROR_DISK_FULL);
    return count == bytes.size();
}

bool resizeLocalFile(HANDLE file, uint64_t size) {
    return seek(file, size) && SetEndOfFile(file) != 0;
}

}  // namespace dorvo
