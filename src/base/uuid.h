// UUIDs as 16 bytes and as text: 36 characters, lower-case hexadecimal, hyphenated, no braces.
#pragma once

#include <windows.h>

#include <array>
#include <cstdint>
#include <string>

namespace dorvo {

// RPC status, 0 on success.
long createUuid(GUID& id);

// Empty when the system cannot convert.
std::string uuidText(const GUID& id);
// Of the 16 bytes that a record keeps.
std::string uuidText(const std::array<uint8_t, 16>& bytes);
// Of a run's id, of which zeros are none and have an empty text.
std::string instanceText(const std::array<uint8_t, 16>& id);

// False when the text is no UUID; `id` is then unchanged.
bool uuidFromText(const std::string& text, GUID& id);

}  // namespace dorvo
