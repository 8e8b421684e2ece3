// The machine's 32 random bytes, kept as Base64 in the registry.
#pragma once

#include <string>

namespace dorvo {

// The same bytes at every call on one machine; made at the first. Never made anew over a value that
// is there but damaged: every encoded store depends on it. False with the last error set and the
// reason logged. Several processes may ask at once.
bool machineKey(std::string& bytes);

}  // namespace dorvo
