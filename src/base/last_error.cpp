#include "base/last_error.h"

#include "base/error_codes.h"
#include "base/text.h"

namespace dorvo {

std::string errorText(unsigned long code) {
    if (isKeyError(code)) {
        return keyErrorText(code);
    }
    LastErrorGuard keep;
    wchar_t* message = nullptr;
    const DWORD length = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, code, 0, reinterpret_cast<wchar_t*>(&message), 0, nullptr);
    if (length == 0) {
        return "error " + std::to_string(code);
    }
    std::wstring text(message, length);
    LocalFree(message);
    text.erase(text.find_last_not_of(L" \r\n") + 1);
    return toUtf8(text);
}

}  // namespace dorvo
