// Owners of Win32 handles: one template, one alias a kind.
//
// An owner closes its handle once, in reset() or its destructor, and keeps the thread's last error
// across the closing call. Owners move and do not copy.
#pragma once

#include <windows.h>

#include <utility>

#include "base/last_error.h"

namespace dorvo {

template <class Policy>
class UniqueHandle {
public:
    using value_type = typename Policy::value_type;

    UniqueHandle() : value_(Policy::invalid()) {}
    explicit UniqueHandle(value_type value) : value_(value) {}
    ~UniqueHandle() { reset(); }
    UniqueHandle(UniqueHandle&& other) noexcept : value_(other.release()) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept {
        reset(other.release());
        return *this;
    }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;

    explicit operator bool() const { return value_ != Policy::invalid(); }
    value_type get() const { return value_; }

    value_type release() { return std::exchange(value_, Policy::invalid()); }
    void reset(value_type value = Policy::invalid()) {
        value_type old = std::exchange(value_, value);
        if (old != Policy::invalid() && old != value) {
            LastErrorGuard keep;
            Policy::close(old);
        }
    }

private:
    value_type value_;
};

struct FileHandlePolicy {
    using value_type = HANDLE;
    static value_type invalid() { return INVALID_HANDLE_VALUE; }
    static void close(value_type value) { CloseHandle(value); }
};

struct KernelHandlePolicy {
    using value_type = HANDLE;
    static value_type invalid() { return nullptr; }
    static void close(value_type value) { CloseHandle(value); }
};

struct MappedViewPolicy {
    using value_type = void*;
    static value_type invalid() { return nullptr; }
    static void close(value_type value) { UnmapViewOfFile(value); }
};

struct FindHandlePolicy {
    using value_type = HANDLE;
    static value_type invalid() { return INVALID_HANDLE_VALUE; }
    static void close(value_type value) { FindClose(value); }
};

struct RegistryKeyPolicy {
    using value_type = HKEY;
    static value_type invalid() { return nullptr; }
    static void close(value_type value) { RegCloseKey(value); }
};

using FileHandle = UniqueHandle<FileHandlePolicy>;
using KernelHandle = UniqueHandle<KernelHandlePolicy>;
using MappedView = UniqueHandle<MappedViewPolicy>;
using FindHandle = UniqueHandle<FindHandlePolicy>;
using RegistryKey = UniqueHandle<RegistryKeyPolicy>;

}  // namespace dorvo
