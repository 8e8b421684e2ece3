// The machine's 32 random bytes, kept as Base64 in the registry.
#pragma once

#include <windows.h>

#include <string>

namespace dorvo {

// The same bytes at every call on one machine; made at the first. Never made anew over a value that
// is there but damaged: every encoded store depends on it. False with the last error set and the
// reason logged. Several processes may ask at once; where another one holds up the making of the
// key for longer than the patience, that is ERROR_TIMEOUT.
bool machineKey(std::string& bytes, DWORD patienceMs = 10'000);

}  // namespace dorvo
