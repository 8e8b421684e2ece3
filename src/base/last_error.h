// Puts the thread's last error back at the end of a scope, whatever was called in between.
#pragma once

#include <windows.h>

namespace dorvo {

class LastErrorGuard {
public:
    LastErrorGuard() : error_(GetLastError()) {}
    ~LastErrorGuard() { SetLastError(error_); }
    LastErrorGuard(const LastErrorGuard&) = delete;
    LastErrorGuard& operator=(const LastErrorGuard&) = delete;

    DWORD error() const { return error_; }
    // The error that the scope leaves behind instead.
    void set(DWORD error) { error_ = error; }

private:
    DWORD error_;
};

}  // namespace dorvo
