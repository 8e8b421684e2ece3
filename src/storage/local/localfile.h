// Files that are read and written at places, whole or not at all.
//
// False leaves the last error.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace dorvo {

bool localFileSize(HANDLE file, uint64_t& size);
// 38 when the file ends before.
bool readLocalFile(HANDLE file, uint64_t offset, std::span<std::byte> bytes);
// 112 when the system takes only a part.
bool writeLocalFile(HANDLE file, uint64_t offset, std::span<const std::byte> bytes);
// Cuts the file off, or makes it longer.
bool resizeLocalFile(HANDLE file, uint64_t size);

}  // namespace dorvo
