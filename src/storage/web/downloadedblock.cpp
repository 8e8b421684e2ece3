#include "storage/web/downloadedblock.h"

#include "base/log.h"

namespace dorvo {

static_assert(malformedBlock == 0x20010258);

bool storeDownloadedBlock(HANDLE package, std::span<const char> body, uint64_t announced,
                          const std::string& name, uint64_t offset, ItemProgress& progress) {
    const uint64_t size = body.size();
    if (size != announced) {
        SetLastError(malformedBlock);
        log(LogLevel::error,
            "Failed to download file data, file {%s}, offset {%Q}, the size of data {size: %Q} "
            "readed is not as large as \"Content-Length\" {Content-Length: %Q}.\n",
            name.c_str(), offset, size, announced);
        return false;
    }
    if (size < md5TextSize) {
        SetLastError(malformedBlock);
        log(LogLevel::error,
            "Failed to download file data, file {%s}, offset {%Q}, the size of data {size: %Q} "
            "is small than the MD5 size {32 bytes}.\n",
            name.c_str(), offset, size);
        return false;
    }
    const std::span<const char> bytes = body.subspan(md5TextSize);
    const auto length = static_cast<DWORD>(bytes.size());
    DWORD written = 0;
    DWORD error =
        WriteFile(package, bytes.data(), length, &written, nullptr) != 0 ? 0 : GetLastError();
    if (error == 0 && written != length) {
        error = ERROR_DISK_FULL;  // a full disk takes a part and calls that a success
    }
    SetLastError(error);
    if (error != 0) {
        log(LogLevel::error, "Failed to write file, file {%s}, offset {%Q}, error-code = %d, %m.\n",
            name.c_str(), offset, static_cast<int>(error));
    }
    progress.moved(written);
    return true;
}

}  // namespace dorvo
