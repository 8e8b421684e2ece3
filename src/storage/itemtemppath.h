// <job directory>\tmp\<item number>: where an item's package lies while it is encoded and sent, or
// received and decoded. Empty when the job has no directory. Asking for a job's directory costs the
// system a look-up: whoever handles many items keeps the folder.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace dorvo {

std::wstring itemTempFolder(std::string_view jobId);
std::wstring itemTempPath(const std::wstring& folder, uint32_t number);

}  // namespace dorvo
