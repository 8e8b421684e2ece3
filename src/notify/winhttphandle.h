// Owns one handle of the platform's HTTP service: a session, a connection or a request.
#pragma once

#include <windows.h>
#include <winhttp.h>

#include "base/handle.h"

namespace dorvo {

struct WinHttpHandlePolicy {
    using value_type = HINTERNET;
    static value_type invalid() { return nullptr; }
    static void close(value_type value) { WinHttpCloseHandle(value); }
};

using WinHttpHandle = UniqueHandle<WinHttpHandlePolicy>;

}  // namespace dorvo
