#include "storage/itemtemppath.h"

#include "base/paths.h"

namespace dorvo {

std::wstring itemTempPath(std::string_view jobId, uint32_t number) {
    std::wstring path;
    if (!jobDirectory(jobId, path)) {
        return {};
    }
    return path + L"\\tmp\\" + std::to_wstring(number);
}

}  // namespace dorvo
