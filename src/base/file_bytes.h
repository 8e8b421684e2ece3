// Files that are read and written at places, whole or not at all.
//
// False leaves the last error.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "base/handle.h"

namespace dorvo {

// A file that is changed where it lies, made with the folders above it where it is not there.
// Others may read it meanwhile. Null leaves the last error.
FileHandle openToChange(const std::wstring& path);

bool fileSize(HANDLE file, uint64_t& size);
// 38 when the file ends before.
bool readFileAt(HANDLE file, uint64_t offset, std::span<std::byte> bytes);
// 112 when the system takes only a part.
bool writeFileAt(HANDLE file, uint64_t offset, std::span<const std::byte> bytes);
// Cuts the file off, or makes it longer.
bool resizeFile(HANDLE file, uint64_t size);

}  // namespace dorvo
