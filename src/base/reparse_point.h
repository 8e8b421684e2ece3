// Entries that may stand for another place: links, junctions, volumes mounted in a folder.
#pragma once

#include <windows.h>

#include <optional>
#include <string>

namespace dorvo {

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

}  // namespace dorvo
