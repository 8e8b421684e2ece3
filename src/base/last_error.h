// The thread's last error: kept over what is called in between, and put into words.
#pragma once

#include <windows.h>

#include <string>

namespace dorvo {

// Puts the thread's last error back at the end of a scope, whatever was called in between.
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

// The system's message for a Win32 or socket error code, in UTF-8 and without a line end; the words
// for an error of a key (base/error_codes.h); the code in decimal where there is no message. Keeps
// the thread's last error.
std::string errorText(unsigned long code);

}  // namespace dorvo
