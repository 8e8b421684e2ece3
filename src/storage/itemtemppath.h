// <job directory>\tmp\<item number>: where an item's package lies while it is encoded and sent, or
// received and decoded. Empty when the job has no directory.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace dorvo {

std::wstring itemTempPath(std::string_view jobId, uint32_t number);

}  // namespace dorvo
