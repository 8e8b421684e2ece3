// A re-entrant lock of one process, usable with std::lock_guard and std::unique_lock.
//
// Construction throws HResultError when Windows cannot make the lock; taking it never fails.
#pragma once

#include <windows.h>

#include <stdexcept>

namespace dorvo {

// A Win32 failure carried as the HRESULT of the Win32 facility.
class HResultError : public std::runtime_error {
public:
    explicit HResultError(HRESULT result) : std::runtime_error("HRESULT"), result_(result) {}
    HRESULT result() const { return result_; }

private:
    HRESULT result_;
};

}  // namespace dorvo

namespace ATL {

class CComAutoCriticalSection {
public:
    CComAutoCriticalSection() {
        if (InitializeCriticalSectionAndSpinCount(&section_, 0) == 0) {
            throw dorvo::HResultError(HRESULT_FROM_WIN32(GetLastError()));
        }
    }
    ~CComAutoCriticalSection() { DeleteCriticalSection(&section_); }
    CComAutoCriticalSection(const CComAutoCriticalSection&) = delete;
    CComAutoCriticalSection& operator=(const CComAutoCriticalSection&) = delete;

    void lock() { EnterCriticalSection(&section_); }
    bool try_lock() { return TryEnterCriticalSection(&section_) != 0; }
    void unlock() { LeaveCriticalSection(&section_); }

private:
    CRITICAL_SECTION section_;
};

}  // namespace ATL

namespace dorvo {

using CriticalSection = ATL::CComAutoCriticalSection;

}  // namespace dorvo
