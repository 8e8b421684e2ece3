// What is done with files and folders: bytes at places, whole or not at all; entries that lead
// elsewhere; folders removed with all that is in them.
//
// False leaves the last error, where nothing else is said.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "base/handle.h"

namespace dorvo {

// A file that is changed where it lies, made with the folders above it where it is not there.
// Others may read it meanwhile. Null leaves the last error.
FileHandle openToChange(const std::wstring& path);

bool fileSize(HANDLE file, uint64_t& size);
bool seekFile(HANDLE file, uint64_t offset);
// Of what the system tells of a file, in two halves.
template <class Data>
constexpr uint64_t sizeOf(const Data& data) {
    return uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow;
}
// 38 when the file ends before.
bool readFileAt(HANDLE file, uint64_t offset, std::span<std::byte> bytes);
// 112 when the system takes only a part.
bool writeFileAt(HANDLE file, uint64_t offset, std::span<const std::byte> bytes);
// Cuts the file off, or makes it longer.
bool resizeFile(HANDLE file, uint64_t size);

// Of links, junctions, volumes mounted in a folder: entries that may stand for another place.

// The reparse tag of the entry, 0 where the system tells none. Nothing of one that is no reparse
// point or is not there.
std::optional<DWORD> reparseTag(const std::wstring& path);

// Files and folders that a cloud provider keeps are reparse points too, and at home where they are.
// A tag that the system does not tell is taken for a link's.
constexpr bool leadsElsewhere(DWORD tag) {
    return tag == 0 || IsReparseTagNameSurrogate(tag);
}

// A junction has the same tag as a mounted volume, and names a folder.
bool isVolumeMountedAt(const std::wstring& path);

// Deletes what lies in a folder, and the folder itself when `self` is true.
//
// A path that names a file deletes the file. Links and other reparse points are removed, never
// entered; read-only entries are deleted too. Goes on past what cannot be deleted; true when
// nothing was left over. A path that does not exist is no failure.
bool rm_rf(const std::wstring& path, bool self);

}  // namespace dorvo
