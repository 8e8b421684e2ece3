#include "base/disk_room.h"

#include <windows.h>

#include "base/last_error.h"
#include "base/paths.h"

namespace dorvo {
namespace {

// The nearest folder from the path upwards that is there; empty when there is none.
std::wstring existing(std::wstring folder) {
    while (!folder.empty() &&
           GetFileAttributesW(longPath(folder + L"\\").c_str()) == INVALID_FILE_ATTRIBUTES) {
        const size_t separator = folder.find_last_of(L'\\');
        folder.resize(separator == std::wstring::npos ? 0 : separator);
    }
    return folder.empty() ? folder : folder + L"\\";
}

std::wstring volumeOf(const std::wstring& folder) {
    std::wstring volume(folder.size() + MAX_PATH, L'\0');
    if (GetVolumePathNameW(longPath(folder).c_str(), volume.data(),
                           static_cast<DWORD>(volume.size())) == 0) {
        return {};
    }
    volume.resize(volume.find(L'\0'));
    return volume;
}

bool fits(const DiskNeed& need) {
    return need.bytes == 0 || diskRoom(need.folder).value_or(need.bytes) >= need.bytes;
}

}  // namespace

std::optional<uint64_t> diskRoom(std::wstring folder) {
    const LastErrorGuard keep;
    const std::wstring there = existing(std::move(folder));
    ULARGE_INTEGER room{};
    if (there.empty() ||
        GetDiskFreeSpaceExW(longPath(there).c_str(), &room, nullptr, nullptr) == 0) {
        return {};
    }
    return room.QuadPart;
}

bool fitsOnDisk(const DiskNeed& one, const DiskNeed& other) {
    const LastErrorGuard keep;
    const std::wstring volume = volumeOf(existing(one.folder));
    if (!volume.empty() && volume == volumeOf(existing(other.folder))) {
        return fits({one.folder, one.bytes + other.bytes});
    }
    return fits(one) && fits(other);
}

}  // namespace dorvo
