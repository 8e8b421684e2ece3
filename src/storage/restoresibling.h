// The short names under which restored files lie beside their targets until they are whole:
// "~<12 hex digits of the run's id>-<item number>.tmp". No two runs share a name, so whoever knows
// the run knows which of a folder's files are its own.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace dorvo {

std::wstring siblingPath(const std::wstring& target, const std::array<uint8_t, 16>& run,
                         uint32_t number);

// Deletes the files beside `sibling`, itself included, that are siblings of the same run. True when
// none is left, also when the folder is gone; not when its drive or share is away. A path that no
// sibling could have is left alone, and true.
bool removeSiblings(const std::wstring& sibling);

}  // namespace dorvo
