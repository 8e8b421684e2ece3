// How much still fits on a disk, as far as the user of this process may fill it, and the errors
// that say that it is full.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace dorvo {

// Bytes of room where the folder is, or will be: of the nearest one above it that is there. Nothing
// when the system does not say. Keeps the last error.
std::optional<uint64_t> diskRoom(std::wstring folder);

// Whether the error says that nothing more fits: on the disk, or into the user's share of it.
constexpr bool isDiskFull(uint32_t error) {
    constexpr uint32_t diskFull = 112;
    constexpr uint32_t handleDiskFull = 39;
    constexpr uint32_t quotaExceeded = 1295;
    return error == diskFull || error == handleDiskFull || error == quotaExceeded;
}

// What is going to be written into a folder.
struct DiskNeed {
    std::wstring folder;
    uint64_t bytes = 0;
};

// Whether both fit, which may lie on one disk. True where the system does not say: then only trying
// shows. Keeps the last error.
bool fitsOnDisk(const DiskNeed& one, const DiskNeed& other);

}  // namespace dorvo
