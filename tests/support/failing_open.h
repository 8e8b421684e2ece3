// What filter drivers and disks may answer to this program, and no test can bring about otherwise.
// One of a kind at a time.
#pragma once

#include <windows.h>

#include <atomic>
#include <climits>
#include <string>
#include <string_view>
#include <utility>

namespace dorvo::test {

// Where the program's calls find the system's functions.
extern "C" decltype(&CreateFileW) importedCreateFile __asm__("__imp_CreateFileW");
extern "C" decltype(&WriteFile) importedWriteFile __asm__("__imp_WriteFile");

// Puts another function in the place of the one that is called; returns that.
template <class Function>
Function exchangeImported(Function& imported, Function with) {
    DWORD protection = 0;
    VirtualProtect(&imported, sizeof(imported), PAGE_READWRITE, &protection);
    return std::exchange(imported, with);
}

// Every CreateFileW fails with an error where the path has a certain text in it, as long as this
// lives or so many times.
class FailingOpen {
public:
    FailingOpen(std::wstring part, DWORD error, int times = INT_MAX) {
        part_ = std::move(part);
        error_ = error;
        left_ = times;
        real_ = exchangeImported(importedCreateFile, Open(open));
    }
    ~FailingOpen() { exchangeImported(importedCreateFile, real_); }
    FailingOpen(const FailingOpen&) = delete;
    FailingOpen& operator=(const FailingOpen&) = delete;

private:
    using Open = decltype(&CreateFileW);

    static HANDLE WINAPI open(const wchar_t* path, DWORD access, DWORD share,
                              SECURITY_ATTRIBUTES* security, DWORD disposition, DWORD flags,
                              HANDLE likeness) {
        if (std::wstring_view(path).find(part_) != std::wstring_view::npos && left_ != 0) {
            --left_;
            SetLastError(error_);
            return INVALID_HANDLE_VALUE;
        }
        return real_(path, access, share, security, disposition, flags, likeness);
    }

    static inline std::wstring part_;
    static inline DWORD error_ = 0;
    static inline std::atomic<int> left_ = 0;
    static inline Open real_ = nullptr;
};

// Every WriteFile takes the half of its bytes and is content, as on a disk that has just become
// full.
class HalfWrites {
public:
    HalfWrites() { real_ = exchangeImported(importedWriteFile, Write(write)); }
    ~HalfWrites() { exchangeImported(importedWriteFile, real_); }
    HalfWrites(const HalfWrites&) = delete;
    HalfWrites& operator=(const HalfWrites&) = delete;

private:
    using Write = decltype(&WriteFile);

    static BOOL WINAPI write(HANDLE file, const void* bytes, DWORD size, DWORD* written,
                             OVERLAPPED* overlapped) {
        return real_(file, bytes, size / 2, written, overlapped);
    }

    static inline Write real_ = nullptr;
};

}  // namespace dorvo::test
