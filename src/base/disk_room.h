// How much still fits on a disk, as far as the user of this process may fill it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace dorvo {

// Bytes of room where the folder is, or will be: of the nearest one above it that is there. Nothing
// when the system does not say. Keeps the last error.
std::optional<uint64_t> diskRoom(std::wstring folder);

// What is going to be written into a folder.
struct DiskNeed {
    std::wstring folder;
    uint64_t bytes = 0;
};

// Whether both fit, which may lie on one disk. True where the system does not say: then only trying
// shows. Keeps the last error.
bool fitsOnDisk(const DiskNeed& one, const DiskNeed& other);

}  // namespace dorvo
