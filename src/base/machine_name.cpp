#include "base/machine_name.h"

#include <windows.h>

#include <array>

#include "base/text.h"

namespace dorvo {

bool machineName(std::string& name) {
    constexpr DWORD longest = 256;
    std::array<wchar_t, longest> text{};
    DWORD size = longest;
    if (GetComputerNameExW(ComputerNameDnsHostname, text.data(), &size) == 0) {
        return false;
    }
    if (size == 0) {
        SetLastError(ERROR_INVALID_NAME);
        return false;
    }
    name = toUtf8({text.data(), size});
    return true;
}

}  // namespace dorvo
