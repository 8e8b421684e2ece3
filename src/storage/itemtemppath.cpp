#include "storage/itemtemppath.h"

#include "base/paths.h"

namespace dorvo {

std::wstring itemTempFolder(std::string_view jobId) {
    std::wstring path;
    return jobDirectory(jobId, path) ? path + L"\\tmp" : std::wstring();
}

std::wstring itemTempPath(const std::wstring& folder, uint32_t number) {
    return folder.empty() ? folder : folder + L"\\" + std::to_wstring(number);
}

}  // namespace dorvo
