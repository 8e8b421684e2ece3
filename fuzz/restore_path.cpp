// Where a restored item may go. The input's lines are original, prefix, root and target; one more
// makes it a directory. A target that passes lies in the root, with plain names throughout.
#include <algorithm>

#include "input.h"
#include "job/restorepath.h"

using namespace dorvo;

namespace {

std::wstring takeLine(std::string_view& text) {
    const std::string_view line = fuzz::takeUntil(text, '\n');
    return {line.begin(), line.end()};
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view text = fuzz::text(data, size);
    const std::wstring original = takeLine(text);
    const std::wstring prefix = takeLine(text);
    const std::wstring root = takeLine(text);
    const std::wstring target = takeLine(text);
    RestorePathRequest request{original, prefix, root, target};
    request.directory = !text.empty();
    const RestorePathFault fault = checkRestorePath(request);
    static_cast<void>(restorePathText(fault));
    fuzz::require((restorePathCode(fault) == 0) == (fault == RestorePathFault::none));
    if (fault != RestorePathFault::none) {
        return 0;
    }
    fuzz::require(restoredPartOf(target, root) <= target.size());
    fuzz::require(target.size() + 1 >= root.size() &&
                  (target + L"\\").find(L"\\..\\") == std::wstring::npos);
    fuzz::require(target.find(L'/') == std::wstring::npos &&
                  target.find(L':', 2) == std::wstring::npos);
    return 0;
}
