// UUIDs as 16 bytes and as text: 36 characters, lower-case hexadecimal, hyphenated, no braces.
#pragma once

#include <windows.h>

#include <string>

namespace dorvo {

// RPC status, 0 on success.
long createUuid(GUID& id);

// Empty when the system cannot convert.
std::string uuidText(const GUID& id);

// False when the text is no UUID; `id` is then unchanged.
bool uuidFromText(const std::string& text, GUID& id);

}  // namespace dorvo
