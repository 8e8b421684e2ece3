// Makes every CreateFileW of this program fail with an error where the path has a certain text in
// it, as long as it lives: what a filter driver or a remote disk may answer, and no test can bring
// about otherwise. One at a time.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <utility>

namespace dorvo::test {

// Where the program's calls find the system's function.
extern "C" decltype(&CreateFileW) importedCreateFile __asm__("__imp_CreateFileW");

class FailingOpen {
public:
    FailingOpen(std::wstring part, DWORD error) {
        part_ = std::move(part);
        error_ = error;
        real_ = exchange(open);
    }
    ~FailingOpen() { exchange(real_); }
    FailingOpen(const FailingOpen&) = delete;
    FailingOpen& operator=(const FailingOpen&) = delete;

private:
    using Open = decltype(&CreateFileW);

    static HANDLE WINAPI open(const wchar_t* path, DWORD access, DWORD share,
                              SECURITY_ATTRIBUTES* security, DWORD disposition, DWORD flags,
                              HANDLE likeness) {
        if (std::wstring_view(path).find(part_) != std::wstring_view::npos) {
            SetLastError(error_);
            return INVALID_HANDLE_VALUE;
        }
        return real_(path, access, share, security, disposition, flags, likeness);
    }
    static Open exchange(Open with) {
        DWORD protection = 0;
        VirtualProtect(&importedCreateFile, sizeof(importedCreateFile), PAGE_READWRITE,
                       &protection);
        return std::exchange(importedCreateFile, with);
    }

    static inline std::wstring part_;
    static inline DWORD error_ = 0;
    static inline Open real_ = nullptr;
};

}  // namespace dorvo::test
