// What a service has said beside the status that it refused a request with, for whoever shows why a
// run waits. Each thread has its own, as it has its last error, until its next refusal.
#pragma once

#include <cstdint>
#include <string>

namespace dorvo {

// `code` is the status with its mark. Of long words the beginning.
void keepRefusalWords(uint32_t code, const std::string& words);

// Those of this thread's last refusal where it had that code; else empty.
std::string refusalWords(uint32_t code);

}  // namespace dorvo
