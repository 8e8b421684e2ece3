// Writes down in which order a program stores into a page of memory, each store with its offset. By
// that a test sees what a process leaves that is killed between two of them.
//
// The page is made read-only; a store that faults is taken down and carried out as a single step.
// One object at a time, of the thread that stores.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace dorvo::test {

class StoreWatch {
public:
    static constexpr size_t pageSize = 4096;

    // Of a page of its own, or of another, which is borrowed.
    explicit StoreWatch(void* page = nullptr)
        : own_(page != nullptr
                   ? nullptr
                   : VirtualAlloc(nullptr, pageSize, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE)),
          page_(static_cast<std::byte*>(page != nullptr ? page : own_)) {
        EXPECT_NE(page_, nullptr);
        current_ = this;
        handler_ = AddVectoredExceptionHandler(1, handle);
    }
    ~StoreWatch() {
        RemoveVectoredExceptionHandler(handler_);
        current_ = nullptr;
        if (own_ != nullptr) {
            VirtualFree(own_, 0, MEM_RELEASE);
        }
    }
    StoreWatch(const StoreWatch&) = delete;
    StoreWatch& operator=(const StoreWatch&) = delete;

    // Zeroes at first.
    void* page() const { return page_; }
    void begin() {
        offsets_.clear();
        protect(PAGE_READONLY);
    }
    // The offsets since then.
    const std::vector<size_t>& end() {
        protect(PAGE_READWRITE);
        return offsets_;
    }

    std::function<void()> onStore = [] {};  // before each

private:
    static constexpr DWORD singleStep = 0x100;  // the processor's trap flag

    void protect(DWORD access) {
        DWORD before = 0;
        VirtualProtect(page_, pageSize, access, &before);
    }

    static LONG CALLBACK handle(EXCEPTION_POINTERS* exception) {
        const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
        StoreWatch& watch = *current_;
        if (record.ExceptionCode == EXCEPTION_SINGLE_STEP && watch.stepping_) {
            watch.stepping_ = false;
            watch.protect(PAGE_READONLY);
            return EXCEPTION_CONTINUE_EXECUTION;
        }
        const uintptr_t offset =
            record.ExceptionInformation[1] - reinterpret_cast<uintptr_t>(watch.page_);
        if (record.ExceptionCode != EXCEPTION_ACCESS_VIOLATION ||
            record.ExceptionInformation[0] != 1 || offset >= pageSize) {
            return EXCEPTION_CONTINUE_SEARCH;
        }
        watch.onStore();
        watch.offsets_.push_back(offset);
        watch.stepping_ = true;
        watch.protect(PAGE_READWRITE);
        exception->ContextRecord->EFlags |= singleStep;
        return EXCEPTION_CONTINUE_EXECUTION;
    }

    static inline StoreWatch* current_ = nullptr;
    void* const own_;
    std::byte* const page_;
    PVOID handler_ = nullptr;
    bool stepping_ = false;
    std::vector<size_t> offsets_;
};

}  // namespace dorvo::test
